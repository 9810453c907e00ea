// qzrcfa-demosaic: demosaics raw Bayer frames from files, through the checked C++
// interface. See usage() (or --help) for the manual.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "image_io.h"
#include "montage.h"
#include "names.h"
#include "qzrcfa.hpp"

namespace {

using namespace qzrcfa::tools;
namespace fs = std::filesystem;

constexpr const char* kProgram = "qzrcfa-demosaic";

const char kManual[] = R"(NAME
    qzrcfa-demosaic - turn raw Bayer frames into colour or grey images

SYNOPSIS
    qzrcfa-demosaic [OPTIONS] -o OUTPUT INPUT
    qzrcfa-demosaic [OPTIONS] -d DIRECTORY INPUT...
    qzrcfa-demosaic --all [OPTIONS] -d DIRECTORY INPUT...

DESCRIPTION
    Reads each INPUT as a raw frame from a single-sensor colour camera (one sample
    per pixel behind a Bayer colour filter) and demosaics it with the qzrcfa
    library, through its checked C++ interface: a request the library cannot serve
    (a frame too small for the method, a combination without a function) is
    refused with a message instead of being run.

    With --all, every method that exists for the pattern and row order runs on each
    frame, each result goes to its own file, and a montage puts the same detailed
    crop of every result side by side, labelled, for comparison at a glance.

OPTIONS
    An option's value may also be given as --option=value. Names (methods,
    patterns, formats, orders, rules, packings, curves) are the library's: the
    name or an alias, in any case, with or without '-', '_' and spaces
    (Edge-Sensing-1, rggb, gray, flip).

    -o, --output FILE
        Output file for a single INPUT. Its extension picks the file type: .png,
        .ppm (colour), .pgm (grey) or .bmp. -o - writes a PPM (colour) or PGM
        (grey) to standard output.
    -d, --output-dir DIRECTORY
        Write STEM.TYPE (with --all, STEM-METHOD.TYPE and STEM-montage.png) into
        DIRECTORY, created if missing (a path that is not a directory, and -, are
        refused). STEM is the input's name without extension (stdin for standard
        input).
    --force
        Replace an output that is a symbolic link (the link, not what it points
        to) or a read-only file (which stays read-only). Without it both are
        refused; a device, pipe or socket is never replaced.
    -t, --type png|ppm|pgm|bmp
        File type for the files -d names (default png).
    -m, --method @METHODS@
        Interpolation method (default bilinear). gbri (extended library) gives the
        best colour. On 8-bit frames the default rule runs the interface's members
        (edge2 exists for RGGB only, laplacian2 for RGGB top-down only); 16-bit
        frames take every method, and --rule general every pattern and order too.
        Grey output is nearest's.
    -p, --pattern @PATTERNS@
        Colours of the frame's top-left 2x2 tile, left to right, top row first
        (default RGGB).
    -f, --format @FORMATS@
        Output of 3 elements per pixel (bitCount 24), 4 (bitCount 32; the fourth is
        what the method leaves there, written as PNG alpha) or one grey sample per
        pixel (nearest only). Default bgr24.
    --order @ORDERS@, --flip
        Row order of the library's output (--flip is --order bottom-up): the
        bottom-up members (the _Flip functions) read the frame as the top-down ones
        do, but some compute a few pixels differently. The file still shows the
        picture upright. Default top-down (bottom-up for .bmp where the method has
        such a member).
    --rule @RULES@
        default: the interface's member for 8-bit frames and where one serves a
        16-bit frame as it is, the method's general rule otherwise; member: the
        member, byte for byte with its export; general: the method's formulas on
        every pixel, the border mirrored.
    --bits N
        Significant bits of 16-bit samples, 9 to 16 (default: what a PGM's maxval
        says, else 16). Samples above 2^N - 1 count as 2^N - 1.
    --output-depth 8|16
        Bits per output element (default the frame's): 8 from a 16-bit frame rounds
        from its significant bits in the same pass (general rule).
    --black N, --black A,B,C,D
        Black level subtracted before interpolation: one for every sample, or one per
        place of the 2x2 tile (row 0 left, row 0 right, row 1 left, row 1 right).
    --wb R,G,B, --wb auto
        White-balance gains of red, green and blue (each above 0, at most 64), or
        grey world's; -v prints the gains a frame used.
    --matrix M0,...,M8
        Colour matrix from camera red, green, blue to the output's, row-major.
    --curve @CURVES@, --gamma G
        Output curve (default linear); --gamma G (above 0, at most 10) is the gamma
        curve output = linear ^ (1 / G).
        --black, --wb, --matrix, --curve and packed rows run the general rule.
    --all
        Run every method (see DESCRIPTION); needs -d and an 8-bit frame.
    --crop X,Y,SIZE
        Crop for the --all montage (default: the most detailed 128x128 window).
    --montage FILE
        Where --all writes the montage (default DIRECTORY/STEM-montage.png).
    --threads N
        Threads per demosaic call, over bands of rows (default 0: every processor).
        1 runs on the calling thread alone; the result is the same whatever N.
        Frames too small to gain from threads run on one. At most 1024.
    --time
        Print, per frame and method, milliseconds per frame (the median of the
        calls, see --repeat) and megapixels per second on standard output (standard
        error with -o -), and, where the frame was split among threads, how many
        times faster than one thread the call ran and on how many threads (each
        call alternates with one on a single thread).
    --repeat N
        With --time: time the median of N calls (default: after one call to warm
        up, as many as last about 0.2 s).
    -v, --verbose
        Print the path of each file written, the montage's included, and the
        white-balance gains each frame used.
    --width W, --height H, --depth 8|16, --packing @PACKINGS@, --stride BYTES
        Read INPUT as a headerless raw frame of W x H samples, 8-bit or 16-bit
        little-endian (default depth 8), or in a sensor's packed layout (MIPI CSI-2
        RAW10 or RAW12, GenICam 10p or 12p, GigE Vision 12Packed), its rows STRIDE
        bytes apart (default: back to back). The file holds H rows, the last at
        least its samples' bytes.
    --max-megapixels N
        Refuse frames of more than N million pixels (default 256) before reading
        their samples.
    -h, --help
        Show this manual.

INPUT
    8- and 16-bit binary PGM (P5), 8- and 16-bit greyscale PNG, or headerless raw
    with --width and --height. The type is recognised by content, not by name.
    An INPUT of - is standard input, which may be a pipe.

    A PGM comment runs from # to the end of its line anywhere in the header,
    also straight after a number, which it ends.

    PGM maxval: above 255 means two bytes per sample. 255 and 65535 are the full
    range. A maxval below 255 is scaled to 255 on reading. A maxval from 256 to
    65534 (a 10- or 12-bit sensor) keeps the samples as they are and gives their
    significant bits: a PGM or PPM output declares the same maxval, and a PNG
    output is scaled to the full 16-bit range with an sBIT chunk recording the
    significant bits. A sample above maxval is refused.

    Nothing is allocated on a header's word alone: a frame larger than the file
    (or a pipe) holds, or above the pixel limit (--max-megapixels), is refused
    before its samples are read.

OUTPUT
    PNG (8- or 16-bit, grey, RGB or RGBA), PPM/PGM (8- or 16-bit) and BMP (8-bit
    only). 16-bit frames give 16-bit images unless --output-depth 8, with the
    maxval of their significant bits. A .bmp output uses the method's bottom-up
    member, whose rows are in BMP's own order, and stores its buffer as it comes;
    laplacian2, which has no bottom-up member, is stored as a top-down BMP.
    Every file is written under a temporary name in its directory and renamed into
    place when complete; a failure, SIGINT, SIGTERM or SIGHUP leaves no partial or
    temporary file, and a file replaced keeps its permissions. Before any input is
    read, a call is refused if one of its outputs is one of its inputs (the same
    file, whatever its name), if two of its outputs are the same file (two inputs
    with one stem, a montage onto a method's output), if -o has no known
    extension, or if an output is a device, pipe or socket, or without --force a
    symbolic link or a read-only file. PNG and PPM/PGM files are converted from
    the demosaiced buffer a row at a time as they are written.

    A progress bar is drawn on standard error when it is a terminal.

EXIT STATUS
    0   every input was demosaiced and written
    1   at least one input failed (unreadable, truncated, wrong size, above the
        pixel limit, unsupported depth, refused request, write error); each failure
        is one line on standard error and the other inputs are still processed
    2   bad command line, or outputs refused before any work (see OUTPUT)

EXAMPLES
    qzrcfa-demosaic -m laplacian -o photo.png frame.pgm
    qzrcfa-demosaic -m smoothhue --output-depth 8 -o photo.png frame16.pgm
    qzrcfa-demosaic --width 640 --height 480 --depth 16 --bits 12 -o f.png f.raw
    qzrcfa-demosaic --width 1920 --height 1080 --packing raw12 -p GRBG \
        --black 256 --wb auto --curve srgb --output-depth 8 -v -o f.png f.raw12
    qzrcfa-demosaic --all -d out samples/astronaut-rggb.pgm
    qzrcfa-demosaic --time -m smoothhue -d out *.pgm
    qzrcfa-demosaic --time --repeat 20 --threads 4 -m laplacian -o f.png f.pgm
    camera-grab | qzrcfa-demosaic -m nearest -o - - | display
)";

struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The manual with the library's names filled in: "nearest|bilinear|...".
std::string manual() {
    std::string text = kManual;
    auto fill = [&](const std::string& key, const std::vector<const qzrcfa_name*>& names) {
        std::string list;
        for (const qzrcfa_name* n : names) list.append(list.empty() ? "" : "|").append(n->name);
        for (std::size_t at; (at = text.find(key)) != std::string::npos;) text.replace(at, key.size(), list);
    };
    fill("@METHODS@", entries<qzrcfa::Method>());
    fill("@PATTERNS@", entries<qzrcfa::Pattern>());
    fill("@FORMATS@", entries<qzrcfa::Format>());
    fill("@ORDERS@", entries<qzrcfa::RowOrder>());
    fill("@RULES@", entries<qzrcfa::Rule>());
    fill("@PACKINGS@", entries<qzrcfa::Packing>());
    fill("@CURVES@", entries<qzrcfa::Curve>());
    return text;
}

// A packed layout as the library reads it: the bits of its samples and the bytes of a
// row of `width` samples.
struct PackedRow {
    int bits = 0;
    std::size_t bytes = 0;
};
PackedRow packed_row(qzrcfa::Packing p, int width) {
    qzrcfa_request q = QZRCFA_REQUEST_INIT;
    q.packing = int(p);
    q.width = std::max(width, 2);  // the smallest frame the library takes; narrower ones it refuses later
    q.height = 2;
    PackedRow row;
    if (qzrcfa_raw_layout(&q, &row.bytes, nullptr, &row.bits) != 0)
        throw std::runtime_error(std::string("the library does not read ") + std::string(qzrcfa::to_string(p)) + " rows");
    return row;
}

struct Settings {
    std::vector<std::string> inputs;
    std::string output, output_dir, type = "png", montage;
    qzrcfa::Options options{.threads = 0};
    bool order_given = false, all = false, time = false, verbose = false, force = false;
    int repeat = 0;  // --time: calls timed; 0: as many as last about 0.2 s
    qzrcfa::tools::ReadLimits limits;
    std::optional<Crop> crop;
    // Headerless raw frames.
    int raw_width = 0, raw_height = 0, raw_depth = 0;
    qzrcfa::Packing packing = qzrcfa::Packing::None;
    std::size_t raw_stride = 0;
    int bits = 0;          // --bits; 0: the frame's
    int output_depth = 0;  // --output-depth; 0: the frame's
};

int parse_int(const std::string& option, const std::string& value, int lo, int hi) {
    char* end = nullptr;
    errno = 0;
    const long v = std::strtol(value.c_str(), &end, 10);
    if (value.empty() || *end != '\0' || errno != 0 || v < lo || v > hi)
        throw UsageError(option + " takes a whole number from " + std::to_string(lo) + " to " + std::to_string(hi) +
                         ", not '" + value + "'");
    return int(v);
}

// Comma-separated numbers; empty when the text is not `counts` of them.
std::vector<double> numbers(const std::string& text, std::initializer_list<std::size_t> counts) {
    std::vector<double> out;
    for (std::size_t at = 0; at <= text.size();) {
        const std::size_t comma = std::min(text.find(',', at), text.size());
        const std::string word = text.substr(at, comma - at);
        char* end = nullptr;
        const double v = std::strtod(word.c_str(), &end);
        if (word.empty() || *end != '\0' || !std::isfinite(v)) return {};
        out.push_back(v);
        at = comma + 1;
    }
    return std::find(counts.begin(), counts.end(), out.size()) == counts.end() ? std::vector<double>() : out;
}

std::string folded(std::string text) {
    for (char& c : text) c = char(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

template <class E>
E parse_name(const std::string& option, const std::string& value) {
    if (const std::optional<E> v = qzrcfa::from_string<E>(value)) return *v;
    throw UsageError(unknown_name<E>(option, value));
}

Settings parse(int argc, char** argv) {
    Settings s;
    bool depth_given = false;
    std::optional<qzrcfa::RowOrder> order;
    qzrcfa::Picture& picture = s.options.picture;
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        // --option=value is --option value.
        std::optional<std::string> attached;
        if (const auto eq = arg.find('='); arg.rfind("--", 0) == 0 && eq != std::string::npos) {
            attached = arg.substr(eq + 1);
            arg.resize(eq);
        }
        auto value = [&]() -> std::string {
            if (attached) {
                std::string v = std::move(*attached);
                attached.reset();
                return v;
            }
            if (i + 1 >= argc) throw UsageError(arg + " needs a value");
            return argv[++i];
        };
        auto set_order = [&](qzrcfa::RowOrder o) {
            if (order && *order != o) throw UsageError("--flip and --order top-down ask for two row orders");
            order = o;
        };
        if (arg == "-h" || arg == "--help") {
            std::fputs(manual().c_str(), stdout);
            std::exit(0);
        } else if (arg == "-o" || arg == "--output") {
            s.output = value();
        } else if (arg == "-d" || arg == "--output-dir") {
            s.output_dir = value();
        } else if (arg == "-t" || arg == "--type") {
            s.type = value();
            if (s.type != "png" && s.type != "ppm" && s.type != "pgm" && s.type != "bmp")
                throw UsageError("unknown " + arg + " value '" + s.type + "' (png, ppm, pgm or bmp)");
        } else if (arg == "-m" || arg == "--method") {
            s.options.method = parse_name<qzrcfa::Method>(arg, value());
        } else if (arg == "-p" || arg == "--pattern") {
            s.options.pattern = parse_name<qzrcfa::Pattern>(arg, value());
        } else if (arg == "-f" || arg == "--format") {
            s.options.format = parse_name<qzrcfa::Format>(arg, value());
        } else if (arg == "--order") {
            set_order(parse_name<qzrcfa::RowOrder>(arg, value()));
        } else if (arg == "--flip") {
            set_order(qzrcfa::RowOrder::BottomUp);
        } else if (arg == "--rule") {
            s.options.rule = parse_name<qzrcfa::Rule>(arg, value());
        } else if (arg == "--bits") {
            s.bits = parse_int(arg, value(), 9, 16);
        } else if (arg == "--output-depth") {
            const std::string v = value();
            if (v != "8" && v != "16") throw UsageError("unknown " + arg + " value '" + v + "' (8 or 16)");
            s.output_depth = std::stoi(v);
        } else if (arg == "--packing") {
            s.packing = parse_name<qzrcfa::Packing>(arg, value());
        } else if (arg == "--stride") {
            s.raw_stride = std::size_t(parse_int(arg, value(), 1, INT_MAX));
        } else if (arg == "--black") {
            const std::string v = value();
            const std::vector<double> n = numbers(v, {1, 4});
            if (n.empty() || std::any_of(n.begin(), n.end(), [](double b) { return b < 0 || b > 65535 || b != std::floor(b); }))
                throw UsageError("--black takes one black level or four (A,B,C,D: the 2x2 tile's places), whole numbers from 0 to 65535, not '" + v + "'");
            for (std::size_t k = 0; k < 4; ++k) picture.black[k] = int(n[n.size() == 1 ? 0 : k]);
        } else if (arg == "--wb") {
            const std::string v = value();
            const std::vector<double> n = numbers(v, {3});
            if (folded(v) == "auto") {
                picture.auto_white_balance = true;
                picture.gains = {};
            } else if (n.empty() || std::any_of(n.begin(), n.end(), [](double g) { return !(g > 0 && g <= 64); })) {
                throw UsageError("--wb takes three gains (R,G,B) above 0 and at most 64, or auto, not '" + v + "'");
            } else {
                picture.auto_white_balance = false;
                picture.gains = {float(n[0]), float(n[1]), float(n[2])};
            }
        } else if (arg == "--matrix") {
            const std::string v = value();
            const std::vector<double> n = numbers(v, {9});
            if (n.empty()) throw UsageError("--matrix takes nine numbers (camera red, green, blue to the output's, row-major), not '" + v + "'");
            std::copy(n.begin(), n.end(), picture.matrix.begin());
        } else if (arg == "--curve") {
            picture.curve = parse_name<qzrcfa::Curve>(arg, value());
        } else if (arg == "--gamma") {
            const std::string v = value();
            const std::vector<double> n = numbers(v, {1});
            if (n.empty()) throw UsageError("--gamma takes a number, not '" + v + "'");
            picture.gamma = float(n[0]);
        } else if (arg == "--all") {
            s.all = true;
        } else if (arg == "--time") {
            s.time = true;
        } else if (arg == "-v" || arg == "--verbose") {
            s.verbose = true;
        } else if (arg == "--force") {
            s.force = true;
        } else if (arg == "--max-megapixels") {
            s.limits.max_pixels = std::uint64_t(parse_int(arg, value(), 1, 100000)) * 1'000'000;
        } else if (arg == "--threads") {
            // Any int goes to the library, which judges the count (see below).
            const std::string v = value();
            char* end = nullptr;
            errno = 0;
            const long n = std::strtol(v.c_str(), &end, 10);
            if (v.empty() || *end != '\0' || errno != 0 || n < std::numeric_limits<int>::min() || n > std::numeric_limits<int>::max())
                throw UsageError(arg + " takes a whole number from 0 to " + std::to_string(qzrcfa::kMaxThreads) + ", not '" + v + "'");
            s.options.threads = int(n);
        } else if (arg == "--repeat") {
            s.repeat = parse_int(arg, value(), 1, 100000);
        } else if (arg == "--montage") {
            s.montage = value();
        } else if (arg == "--crop") {
            const std::string v = value();
            int x = 0, y = 0, size = 0, used = 0;
            if (std::sscanf(v.c_str(), "%d,%d,%d%n", &x, &y, &size, &used) != 3 || used != int(v.size()) || x < 0 ||
                y < 0 || size < 2)
                throw UsageError("--crop takes X,Y,SIZE (whole numbers, SIZE at least 2), not '" + v + "'");
            s.crop = Crop{x & ~1, y & ~1, size};
        } else if (arg == "--width") {
            s.raw_width = parse_int(arg, value(), 1, 1 << 20);
        } else if (arg == "--height") {
            s.raw_height = parse_int(arg, value(), 1, 1 << 20);
        } else if (arg == "--depth") {
            const std::string v = value();
            if (v != "8" && v != "16") throw UsageError("unknown " + arg + " value '" + v + "' (8 or 16)");
            s.raw_depth = std::stoi(v);
            depth_given = true;
        } else if (arg.size() > 1 && arg[0] == '-') {
            throw UsageError("unknown option '" + arg + "' (see --help)");
        } else {
            s.inputs.push_back(arg);
        }
        if (attached) throw UsageError(arg + " takes no value");
    }
    if (s.inputs.empty()) throw UsageError("no input files (see --help)");
    if ((s.raw_width == 0) != (s.raw_height == 0)) throw UsageError("a headerless raw frame needs both --width and --height");
    const bool packed = s.packing != qzrcfa::Packing::None;
    if (s.raw_width == 0) {
        if (depth_given || packed || s.raw_stride)
            throw UsageError(std::string(depth_given ? "--depth" : packed ? "--packing" : "--stride") +
                             " applies to headerless raw frames (with --width and --height)");
    }
    if (depth_given && packed) throw UsageError("--depth and --packing both give the samples' layout: give one");
    if (s.raw_depth == 0) s.raw_depth = packed ? 16 : 8;
    if (packed && s.bits && s.bits != packed_row(s.packing, s.raw_width).bits)
        throw UsageError("--bits " + std::to_string(s.bits) + " with --packing " + std::string(qzrcfa::to_string(s.packing)) +
                         ", whose samples have " + std::to_string(packed_row(s.packing, s.raw_width).bits) + " bits");
    if (s.raw_stride) {
        const std::size_t row = packed ? packed_row(s.packing, s.raw_width).bytes
                                       : std::size_t(s.raw_width) * std::size_t(s.raw_depth / 8);
        const std::string what = packed ? std::string(qzrcfa::to_string(s.packing)) + " row" : std::to_string(s.raw_depth) + "-bit row";
        if (s.raw_stride < row)
            throw UsageError("--stride " + std::to_string(s.raw_stride) + " is below the " + std::to_string(row) + " bytes of a " +
                             std::to_string(s.raw_width) + "-pixel " + what);
        if (!packed && s.raw_depth == 16 && s.raw_stride % 2 != 0)
            throw UsageError("--stride " + std::to_string(s.raw_stride) + " is not a whole number of 16-bit samples");
    }
    if (picture.gamma != 0 && picture.curve == qzrcfa::Curve::Linear) picture.curve = qzrcfa::Curve::Gamma;
    if (picture.curve == qzrcfa::Curve::Gamma && picture.gamma == 0) throw UsageError("--curve gamma needs --gamma G");
    if (picture.gamma != 0 && picture.curve != qzrcfa::Curve::Gamma) throw UsageError("--gamma goes with --curve gamma");
    if (s.output.empty() == s.output_dir.empty()) throw UsageError("name the output with -o FILE or -d DIRECTORY (one of them)");
    if (!s.output.empty() && s.all)
        throw UsageError("--all writes a file per method and a montage: name a directory with -d DIRECTORY instead of -o");
    if (!s.output.empty() && s.inputs.size() > 1) throw UsageError("-o names one file; use -d DIRECTORY for several inputs");
    if (s.output_dir == "-") throw UsageError("-d takes a directory, not - (-o - writes one image to standard output)");
    if (s.all && s.options.format == qzrcfa::Format::Grey) throw UsageError("--all compares colour methods; use --format bgr24 or bgra32");
    if (!s.montage.empty() && !s.all) throw UsageError("--montage goes with --all");
    if (s.repeat && !s.time) throw UsageError("--repeat goes with --time");
    s.order_given = order.has_value();
    s.options.order = order.value_or(qzrcfa::RowOrder::TopDown);
    // The thread count and the picture as the library judges them, on a request it would
    // otherwise run (the black level against 16-bit samples: each frame's bits judge it again).
    std::uint16_t raw[16] = {}, bgr[48];
    const qzrcfa::Options threads{.threads = s.options.threads};
    if (const qzrcfa::Result r = qzrcfa::check(qzrcfa::RawFrame(raw, 16, 4, 4), qzrcfa::OutputImage(bgr, 48), threads); !r)
        throw UsageError("--threads: " + r.message());
    const qzrcfa::Options general{.threads = 1, .rule = qzrcfa::Rule::General, .picture = picture};
    if (const qzrcfa::Result r = qzrcfa::check(qzrcfa::RawFrame(raw, 16, 4, 4), qzrcfa::OutputImage(bgr, 48), general); !r)
        throw UsageError(r.message());
    return s;
}

// Progress on standard error, drawn only when it is a terminal.
class Progress {
  public:
    explicit Progress(int total) : total_(total), enabled_(isatty(STDERR_FILENO) == 1 && total > 0) {}
    ~Progress() {
        if (enabled_ && drawn_) std::fputs("\r\033[K", stderr);
    }
    void step(const std::string& what) {
        ++done_;
        if (!enabled_) return;
        constexpr int kBar = 30;
        const int filled = done_ * kBar / total_;
        std::fprintf(stderr, "\r\033[K[%.*s%*s] %d/%d %s", filled, "##############################", kBar - filled, "",
                     done_, total_, what.c_str());
        std::fflush(stderr);
        drawn_ = true;
    }
    // Clears the bar so a message can take the line.
    void clear() {
        if (enabled_ && drawn_) std::fputs("\r\033[K", stderr);
    }

  private:
    int total_, done_ = 0;
    bool enabled_, drawn_ = false;
};

// A raw frame: its samples (8- or 16-bit), or the bytes of its packed rows, and how the
// library is to read them.
struct Frame {
    Image image;  // one channel; packed rows in `pixels`
    std::string name;
    qzrcfa::Packing packing = qzrcfa::Packing::None;
    int bits = 0;              // significant bits of 16-bit samples (0: 16)

    // Bits of the values the samples become: 8 or 16.
    int depth() const { return packing != qzrcfa::Packing::None ? 16 : image.depth; }
    // Significant bits of those values.
    int value_bits() const { return packing != qzrcfa::Packing::None ? packed_row(packing, image.width).bits : bits ? bits : image.depth; }
};

// An 8-bit frame before it is read: what --all and the outputs are judged against.
Frame eight_bit_frame() {
    Frame f;
    f.image.depth = 8;
    return f;
}

int output_depth(const Settings& s, const Frame& f) { return s.output_depth ? s.output_depth : f.depth(); }

// The frame as the library reads it; before its samples are read, a view of nothing.
qzrcfa::RawFrame raw_view(const Frame& f) {
    const Image& im = f.image;
    const auto stride = std::ptrdiff_t(im.stride);
    if (f.packing != qzrcfa::Packing::None)
        return qzrcfa::RawFrame(im.pixels.data(), im.pixels.size(), im.width, im.height, f.packing, stride);
    if (im.depth == 8) return qzrcfa::RawFrame(im.pixels.data(), im.pixels.size(), im.width, im.height, stride);
    return qzrcfa::RawFrame(im.wide.data(), im.wide.size(), im.width, im.height, stride, f.bits);
}

// Whether the library has the method for the rest of the request (at some size).
bool serves(const Frame& f, const qzrcfa::Options& o, int out_depth) {
    return qzrcfa::minimum_size(raw_view(f), o, out_depth).width != 0;
}

// Refuses a request the library would refuse, from the frame's header alone, before any
// buffer is allocated for it.
void check_request(const Frame& f, const qzrcfa::Options& o, int out_depth) {
    if (qzrcfa::output_elements(raw_view(f), o, out_depth) != 0) return;
    const qzrcfa::OutputImage none = out_depth == 16 ? qzrcfa::OutputImage(static_cast<std::uint16_t*>(nullptr), 0)
                                                     : qzrcfa::OutputImage(static_cast<std::uint8_t*>(nullptr), 0);
    throw std::runtime_error(qzrcfa::check(raw_view(f), none, o).message());
}

std::string stem(const std::string& path) { return path == "-" ? "stdin" : fs::path(path).stem().string(); }

std::vector<qzrcfa::Method> methods_for(const Settings& s, const Frame& f) {
    if (!s.all) return {s.options.method};
    std::vector<qzrcfa::Method> out;
    for (const qzrcfa::Method m : qzrcfa::tools::all<qzrcfa::Method>()) {
        qzrcfa::Options o = s.options;
        o.method = m;
        if (serves(f, o, output_depth(s, f))) out.push_back(m);
    }
    return out;
}

std::string join(const std::string& dir, const std::string& name) { return (fs::path(dir) / name).string(); }

std::string target_for(const Settings& s, const std::string& name, qzrcfa::Method m) {
    if (!s.output.empty()) return s.output;
    std::string file = name;
    if (s.all) file.append("-").append(qzrcfa::to_string(m));
    return join(s.output_dir, file.append(".").append(s.type));
}

std::string montage_for(const Settings& s, const std::string& name) {
    return s.montage.empty() ? join(s.output_dir, name + "-montage.png") : s.montage;
}

// Row order a request needs for its destination: unless an order was asked for, BMP
// takes the bottom-up member where the method has one.
qzrcfa::Options options_for(const Settings& s, qzrcfa::Method m, const std::string& path, const Frame& f) {
    qzrcfa::Options o = s.options;
    o.method = m;
    if (extension(path) == "bmp" && !s.order_given) {
        qzrcfa::Options up = o;
        up.order = qzrcfa::RowOrder::BottomUp;
        if (serves(f, up, output_depth(s, f))) o = up;
    }
    return o;
}

// The significant bits of a frame's 16-bit samples: --bits, or what a PGM's maxval from
// 256 to 65534 says; the two must agree. Packed rows have their layout's.
void settle_bits(const Settings& s, Frame& f) {
    if (f.packing != qzrcfa::Packing::None) return;
    const int maxval = f.image.maxval;
    const int header = f.image.depth == 16 && maxval > 0 ? int(std::bit_width(unsigned(maxval))) : 0;
    const std::string given = "--bits " + std::to_string(s.bits);
    if (s.bits && f.image.depth != 16) throw std::runtime_error(given + " is for 16-bit samples; this frame has 8-bit samples");
    if (s.bits && header && s.bits != header)
        throw std::runtime_error(given + " disagrees with the header's maxval " + std::to_string(maxval) + ", " + std::to_string(header) +
                                 " significant bits");
    f.bits = s.bits ? s.bits : header;
}

Frame load(const Settings& s, const std::string& path) {
    Frame f;
    f.name = stem(path);
    f.packing = s.packing;
    ReadLimits limits = s.limits;
    // Once the header is read: every request this frame makes must be one the library
    // serves, or nothing more is read.
    limits.accept = [&](int width, int height, int depth, int maxval, int channels) {
        if (channels != 1)
            throw std::runtime_error("has " + std::to_string(channels) + " channels; a raw frame has one sample per pixel");
        f.image.width = width;
        f.image.height = height;
        f.image.depth = f.packing != qzrcfa::Packing::None ? 8 : depth;
        f.image.maxval = maxval;
        f.image.stride = s.raw_stride;
        settle_bits(s, f);
        if (s.all && f.depth() != 8) throw std::runtime_error("--all compares methods on 8-bit frames; this frame has 16-bit samples");
        for (qzrcfa::Method m : methods_for(s, f))
            check_request(f, options_for(s, m, target_for(s, f.name, m), f), output_depth(s, f));
    };
    if (s.raw_width) {
        RawLayout layout{s.raw_width, s.raw_height, s.raw_depth, 0, "", s.raw_stride};
        if (s.packing != qzrcfa::Packing::None) {
            layout.row_bytes = packed_row(s.packing, s.raw_width).bytes;
            layout.packing = qzrcfa::to_string(s.packing);
        }
        f.image = read_raw(path, layout, limits);
    } else {
        f.image = read_image(path, true, limits);
    }
    return f;
}

// A demosaiced image and how long the call took: the median time with the options'
// threads and, where those split the frame, with one.
struct Output {
    std::vector<std::uint8_t> bytes;    // 8-bit elements
    std::vector<std::uint16_t> wide;    // 16-bit elements
    int depth = 8;                      // of the elements
    std::array<float, 3> gains{1, 1, 1};  // the white-balance gains the call used
    int threads = 1;                    // the frame was split among
    int calls = 0;                      // timed
    double ms = 0;
    double ms_one_thread = 0;           // 0: not measured
};

// One call into `out`, returning how long it took.
double call(Output& out, const Frame& frame, const qzrcfa::Options& o, std::size_t out_count) {
    // The fourth element of bgra output keeps what the buffer held where the method
    // leaves it: start opaque.
    if (out.depth == 8) out.bytes.assign(out_count, 0xFF);
    else out.wide.assign(out_count, 0xFFFF);
    const qzrcfa::RawFrame raw = raw_view(frame);
    const auto start = std::chrono::steady_clock::now();
    const qzrcfa::Result r = out.depth == 8 ? qzrcfa::demosaic(raw, qzrcfa::OutputImage(std::span(out.bytes)), o)
                                            : qzrcfa::demosaic(raw, qzrcfa::OutputImage(std::span(out.wide)), o);
    const double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    if (!r) throw std::runtime_error(r.message());
    out.gains = r.gains_used();
    return ms;
}

double median(std::vector<double> times) {
    if (times.empty()) return 0;
    std::nth_element(times.begin(), times.begin() + std::ptrdiff_t(times.size() / 2), times.end());
    return times[times.size() / 2];
}

// Runs the request into `out`: once, or timed: the median of `repeat` calls, or with
// repeat 0 of as many as last about 0.2 s after one to warm up (which starts the
// threads and touches the buffers; a call that alone lasts that long is timed once).
// Where the frame is split among threads, each call alternates with one on a single
// thread, so that both meet the same load from the rest of the machine.
Output run(const Settings& s, const Frame& frame, const qzrcfa::Options& o) {
    constexpr double kBudgetMs = 200;
    constexpr std::size_t kMostCalls = 10000;
    const int out_depth = output_depth(s, frame);
    check_request(frame, o, out_depth);
    const std::size_t out_count = qzrcfa::output_elements(raw_view(frame), o, out_depth);
    Output out;
    out.depth = out_depth;
    out.threads = qzrcfa::threads_used(raw_view(frame), o, out_depth);
    qzrcfa::Options one = o;
    one.threads = 1;
    const bool compare = s.time && out.threads > 1;
    std::vector<double> times, single;
    auto once = [&] {
        if (compare) single.push_back(call(out, frame, one, out_count));
        times.push_back(call(out, frame, o, out_count));
    };
    once();
    if (s.time && s.repeat > 0) {
        while (times.size() < std::size_t(s.repeat)) once();
    } else if (s.time && times[0] < kBudgetMs) {
        times.clear();
        single.clear();
        for (double total = 0; total < kBudgetMs && times.size() < kMostCalls; total += times.back()) once();
    }
    out.calls = int(times.size());
    out.ms = median(times);
    out.ms_one_thread = median(single);
    return out;
}

int elements_per_pixel(const qzrcfa::Options& o) {
    return o.format == qzrcfa::Format::Bgra32 ? 4 : o.format == qzrcfa::Format::Bgr24 ? 3 : 1;
}

// PNG and netpbm files get the upright picture, converted from the buffer a row at a
// time as it is written; a BMP takes the buffer as it lies. 16-bit elements keep the
// range of the frame's significant bits (a PGM's maxval).
void write_output(const std::string& path, const Output& out, const Frame& frame, const qzrcfa::Options& o) {
    const Image& im = frame.image;
    const bool bottom_up = o.order == qzrcfa::RowOrder::BottomUp;
    const int elements = elements_per_pixel(o);
    if (extension(path) == "bmp") {
        if (out.depth == 16) throw std::runtime_error(path + ": BMP holds 8-bit samples; write 16-bit output as .png or .ppm/.pgm (or --output-depth 8)");
        write_bmp(path, out.bytes.data(), im.width, im.height, elements, bottom_up);
        return;
    }
    BufferView view;
    if (out.depth == 16) view.wide = out.wide.data();
    else view.bytes = out.bytes.data();
    view.width = im.width;
    view.height = im.height;
    view.elements = elements;
    view.bottom_up = bottom_up;
    view.keep_fourth = elements == 4;
    const int bits = frame.value_bits();
    if (out.depth == 16) view.maxval = im.maxval ? im.maxval : bits < 16 ? (1 << bits) - 1 : 0;
    write_image(path, view);
}

// The montage's crop of an 8-bit colour output, upright R, G, B.
Image crop_of(const Output& out, const Image& frame, const qzrcfa::Options& o, const Crop& crop) {
    const std::size_t n = std::size_t(crop.size), elements = std::size_t(elements_per_pixel(o));
    Image tile{crop.size, crop.size, 3, 8, std::vector<std::uint8_t>(n * n * 3), {}, 0};
    for (std::size_t y = 0; y < n; ++y) {
        const std::size_t fy = std::size_t(crop.y) + y;
        const std::size_t row = o.order == qzrcfa::RowOrder::BottomUp ? std::size_t(frame.height) - 1 - fy : fy;
        const std::uint8_t* in = out.bytes.data() + (row * std::size_t(frame.width) + std::size_t(crop.x)) * elements;
        std::uint8_t* px = tile.pixels.data() + y * n * 3;
        for (std::size_t x = 0; x < n; ++x, in += elements, px += 3) {
            px[0] = in[2];
            px[1] = in[1];
            px[2] = in[0];
        }
    }
    return tile;
}

// Time and written files go to standard output, unless the image does.
std::FILE* report(const Settings& s) { return s.output == "-" ? stderr : stdout; }

void report_time(const Settings& s, const Frame& frame, qzrcfa::Method m, const Output& out) {
    if (!s.time) return;
    const double mp = double(frame.image.width) * double(frame.image.height) / 1e6;
    std::fprintf(report(s), "%s %s: %.3f ms per frame (median of %d), %.1f MP/s", frame.name.c_str(),
                 std::string(qzrcfa::to_string(m)).c_str(), out.ms, out.calls, out.ms > 0 ? mp / (out.ms / 1000.0) : 0.0);
    if (out.ms_one_thread > 0)
        std::fprintf(report(s), ", %.2fx one thread's speed (%d threads)", out.ms > 0 ? out.ms_one_thread / out.ms : 0.0, out.threads);
    std::fputc('\n', report(s));
    std::fflush(report(s));
}

// The gains a frame's white balance used, as --wb takes them.
void report_gains(const Settings& s, const Frame& frame, const Output& out) {
    const qzrcfa::Picture& p = s.options.picture;
    if (!s.verbose || !(p.auto_white_balance || p.gains != std::array<float, 3>{})) return;
    std::fprintf(report(s), "%s white balance: --wb %.6g,%.6g,%.6g\n", frame.name.c_str(), double(out.gains[0]), double(out.gains[1]),
                 double(out.gains[2]));
}

void report_written(const Settings& s, const std::string& path) {
    if (s.verbose && path != "-") std::fprintf(report(s), "wrote %s\n", path.c_str());
}

// Refuses an output path this call must not write to: a file type the extension does
// not give (-o), and, whatever --force says, a device, pipe or socket; without --force,
// a symbolic link (renaming over it would replace the link) or a read-only file.
void check_target(const Settings& s, const std::string& path) {
    if (path == s.output) {
        const std::string ext = extension(path);
        if (ext != "png" && ext != "ppm" && ext != "pgm" && ext != "pnm" && ext != "bmp")
            throw UsageError(path + ": " + (ext.empty() ? std::string("no extension") : "unknown extension ." + ext) +
                             "; the extension gives the file type: .png, .ppm, .pgm or .bmp (-o - writes to standard output)");
    }
    struct stat st{};
    if (::lstat(path.c_str(), &st) != 0) return;
    if (S_ISLNK(st.st_mode)) {
        if (s.force) return;
        std::error_code ec;
        const fs::path to = fs::read_symlink(path, ec);
        throw UsageError(path + " is a symbolic link" + (ec ? "" : " to " + to.string()) +
                         "; --force replaces the link (not what it points to)");
    }
    if (!S_ISREG(st.st_mode)) throw UsageError(path + " is not a regular file (a device, pipe or socket is never replaced)");
    // By the permission bits as well: root may write to any file.
    if (!s.force && ((st.st_mode & 0222) == 0 || ::access(path.c_str(), W_OK) != 0))
        throw UsageError(path + " is read-only; --force replaces it (keeping its permissions)");
}

// Refuses, before any work, outputs that would replace one of the call's inputs or
// each other, or that check_target refuses. Files are told apart by device and inode
// where they exist, by their resolved path where they do not yet.
void check_outputs(const Settings& s) {
    std::error_code ec;
    if (!s.output_dir.empty() && fs::exists(s.output_dir, ec) && !fs::is_directory(s.output_dir, ec))
        throw UsageError(s.output_dir + " is not a directory; -d names a directory (-o a file)");
    auto identity = [](const std::string& path) -> std::string {
        struct stat st{};
        if ((path == "-" ? ::fstat(STDIN_FILENO, &st) : ::stat(path.c_str(), &st)) == 0)
            return "inode " + std::to_string(st.st_dev) + ":" + std::to_string(st.st_ino);
        std::error_code ec;
        const fs::path resolved = fs::weakly_canonical(fs::absolute(path, ec), ec);
        return "path " + (ec ? path : resolved.string());
    };
    std::vector<std::pair<std::string, std::string>> inputs;  // identity, name
    for (const std::string& in : s.inputs) inputs.emplace_back(identity(in), in == "-" ? "standard input" : in);
    std::vector<std::pair<std::string, std::string>> seen;     // identity, what it would be
    auto claim = [&](const std::string& path, const std::string& what) {
        if (path == "-") return;
        std::error_code ec;
        if (fs::is_directory(path, ec))
            throw UsageError(path + " is a directory" + (s.output.empty() ? "" : "; -o names a file (-d a directory)"));
        const std::string id = identity(path);
        for (const auto& [input, name] : inputs)
            if (input == id) throw UsageError(path + ", " + what + ", would replace the input " + name);
        for (const auto& [other, other_what] : seen)
            if (other == id) throw UsageError(path + " would be both " + other_what + " and " + what);
        check_target(s, path);
        seen.emplace_back(id, what);
    };
    for (const std::string& in : s.inputs) {
        const std::string name = stem(in), shown = in == "-" ? "standard input" : in;
        for (qzrcfa::Method m : methods_for(s, eight_bit_frame()))
            claim(target_for(s, name, m), "the " + (s.all ? std::string(qzrcfa::to_string(m)) + " " : std::string()) + "output of " + shown);
        if (s.all) claim(montage_for(s, name), "the montage of " + shown);
    }
}

void process(const Settings& s, const std::string& path, Progress& progress) {
    const Frame frame = load(s, path);
    std::vector<Tile> tiles;
    Crop crop;
    if (s.all) {
        const int w = frame.image.width, h = frame.image.height;
        crop = s.crop ? *s.crop : detailed_crop(frame.image.pixels.data(), w, h, 128);
        crop.size = std::min({crop.size, w - std::min(crop.x, w), h - std::min(crop.y, h)});
        if (crop.size < 2) throw std::runtime_error(path + ": the crop lies outside the " + std::to_string(w) + "x" + std::to_string(h) + " frame");
        const std::string pattern(qzrcfa::to_string(s.options.pattern));
        std::string label = "raw ";
        label += pattern;
        // The crop starts on an even row and column: its pattern is the frame's.
        const std::size_t n = std::size_t(crop.size);
        std::vector<std::uint8_t> window(n * n);
        for (std::size_t y = 0; y < n; ++y)
            std::copy_n(frame.image.pixels.data() + (std::size_t(crop.y) + y) * std::size_t(w) + std::size_t(crop.x), n, window.data() + y * n);
        tiles.push_back({label, mosaic_view(window.data(), crop.size, crop.size, pattern)});
    }
    // Every method runs before anything is written, so a request that is refused
    // leaves no files at all.
    struct Done {
        qzrcfa::Method method;
        qzrcfa::Options options;
        std::string target;
        Output out;
    };
    std::vector<Done> done;
    for (qzrcfa::Method m : methods_for(s, frame)) {
        const std::string target = target_for(s, frame.name, m);
        const qzrcfa::Options o = options_for(s, m, target, frame);
        done.push_back({m, o, target, run(s, frame, o)});
        progress.step(frame.name + " " + std::string(qzrcfa::to_string(m)));
    }
    if (!done.empty()) report_gains(s, frame, done.front().out);
    for (const Done& d : done) {
        write_output(d.target, d.out, frame, d.options);
        report_time(s, frame, d.method, d.out);
        report_written(s, d.target);
        if (s.all)
            tiles.push_back({std::string(label(d.method)), crop_of(d.out, frame.image, d.options, crop)});
    }
    if (s.all) {
        // Enlarged so single pixels stay visible: tiles of about 256 pixels.
        const int scale = std::max(1, 256 / std::max(1, crop.size));
        for (Tile& t : tiles) t.image = enlarge(t.image, Crop{0, 0, crop.size}, scale);
        const std::string target = montage_for(s, frame.name);
        write_png(target, montage(tiles, 4));
        if (s.verbose) std::fprintf(report(s), "wrote %s (montage)\n", target.c_str());
    }
}

}  // namespace

int main(int argc, char** argv) {
    Settings s;
    try {
        s = parse(argc, argv);
        check_outputs(s);
    } catch (const UsageError& e) {
        std::fprintf(stderr, "%s: %s\n", kProgram, e.what());
        return 2;
    }
    if (!s.output_dir.empty()) {
        std::error_code ec;
        fs::create_directories(s.output_dir, ec);
        if (ec) {
            std::fprintf(stderr, "%s: %s: cannot create the directory: %s\n", kProgram, s.output_dir.c_str(), ec.message().c_str());
            return 1;
        }
    }
    const int steps = int(s.inputs.size()) * (s.all ? int(methods_for(s, eight_bit_frame()).size()) : 1);
    Progress progress(s.inputs.size() > 1 || s.all ? steps : 0);
    int failed = 0;
    for (const std::string& path : s.inputs) {
        try {
            process(s, path, progress);
        } catch (const std::exception& e) {
            progress.clear();
            std::string message = e.what();
            // Refusals from the checked interface do not name the file; add it.
            const std::string name = path == "-" ? "standard input" : path;
            if (message.rfind(name, 0) != 0) message = name + ": " + message;
            std::fprintf(stderr, "%s: %s\n", kProgram, message.c_str());
            ++failed;
        }
    }
    return failed ? 1 : 0;
}
