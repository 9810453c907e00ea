#include "image_io.h"

#include <png.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>

namespace qzrcfa::tools {
namespace {

struct FileCloser {
    void operator()(std::FILE* f) const {
        if (f) std::fclose(f);
    }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

[[noreturn]] void fail(const std::string& name, const std::string& what) { throw std::runtime_error(name + ": " + what); }

std::string describe_byte(int ch) {
    if (ch == EOF) return "the end of the file";
    char buf[16];
    if (ch > ' ' && ch < 127) std::snprintf(buf, sizeof buf, "'%c'", ch);
    else std::snprintf(buf, sizeof buf, "byte 0x%02x", ch);
    return buf;
}

// An open input, the name messages give it, and for a regular file its size, so a
// reader can compare a declared frame with what the file holds before allocating.
struct Source {
    std::FILE* file;
    std::string name;
    std::optional<std::uint64_t> size;
    std::uint64_t consumed = 0;  // bytes libpng has taken
    std::string warning;         // libpng's last warning, which may say why an error came

    Source(std::FILE* f, std::string n) : file(f), name(std::move(n)) {
        struct stat st{};
        const int fd = ::fileno(f);
        if (fd >= 0 && ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode)) size = std::uint64_t(st.st_size);
    }
    // Bytes from the read position to the end of a regular file.
    std::optional<std::uint64_t> left() const {
        const off_t at = ::ftello(file);
        if (!size || at < 0) return std::nullopt;
        return *size - std::min(*size, std::uint64_t(at));
    }
};

// Opens a path for reading; "-" is standard input.
File open_input(const std::string& path, std::FILE*& file) {
    if (path == "-") {
        file = stdin;
        return nullptr;
    }
    std::error_code ec;
    if (std::filesystem::is_directory(path, ec)) fail(path, "is a directory");
    File f(std::fopen(path.c_str(), "rb"));
    if (!f) fail(path, std::string("cannot open: ") + std::strerror(errno));
    file = f.get();
    return f;
}

std::string input_name(const std::string& path) { return path == "-" ? "standard input" : path; }

std::string dims(std::uint64_t w, std::uint64_t h) { return std::to_string(w) + "x" + std::to_string(h); }

// The pixel limit, checked before anything is allocated for the frame.
void check_pixels(const Source& in, const std::string& declares, std::uint64_t w, std::uint64_t h, const ReadLimits& limits) {
    if (w * h > limits.max_pixels)
        fail(in.name, declares + " " + dims(w, h) + ", " + std::to_string(w * h) + " pixels, above the limit of " +
                          std::to_string(limits.max_pixels) + " (--max-megapixels raises it)");
}

// Reads up to `need` bytes (whole elements of T) into the storage of `samples`, where
// they are then converted in place; returns how many bytes came. A regular file was
// compared with `need` beforehand and is read in one piece; from a pipe the buffer grows
// only as bytes arrive.
template <class T>
std::uint64_t read_into(const Source& in, std::vector<T>& samples, std::uint64_t need) {
    std::uint64_t have = 0;
    while (have < need) {
        const std::uint64_t next = in.size ? need : std::min(need, std::max<std::uint64_t>(2 * have, 1 << 16));
        samples.resize(std::size_t(next / sizeof(T)));
        const std::size_t got = std::fread(reinterpret_cast<char*>(samples.data()) + have, 1, std::size_t(next - have), in.file);
        have += got;
        if (have < next) break;
    }
    if (std::ferror(in.file)) fail(in.name, std::string("read failed: ") + std::strerror(errno));
    samples.resize(std::size_t(have / sizeof(T)));
    return have;
}

std::uint16_t swap_bytes(std::uint16_t v) { return std::uint16_t(v << 8 | v >> 8); }

// 16-bit samples stored with the given byte order, to the machine's.
void to_native(std::vector<std::uint16_t>& samples, std::endian stored) {
    if (stored != std::endian::native)
        for (std::uint16_t& v : samples) v = swap_bytes(v);
}

[[noreturn]] void truncated(const Source& in, const std::string& declared, std::uint64_t need, std::uint64_t have) {
    fail(in.name, "truncated: " + declared + ", " + std::to_string(need) + " bytes of samples; " +
                      (in.size ? "the file holds " : "the input ends after ") + std::to_string(have));
}

// A netpbm header number, after whitespace and comments, ended by one whitespace byte.
// A comment runs from '#' to the end of the line wherever it starts, so it may follow a
// number directly: it then ends the number, and its line end is that whitespace byte.
std::uint64_t pnm_field(const Source& in, const char* field, std::uint64_t max) {
    const std::string what = std::string("header field ") + field + ": ";
    auto space = [](int c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; };
    auto skip_comment = [&] {
        int c = std::fgetc(in.file);
        while (c != '\n' && c != '\r' && c != EOF) c = std::fgetc(in.file);
        return c;
    };
    int ch = std::fgetc(in.file);
    for (;;) {
        while (space(ch)) ch = std::fgetc(in.file);
        if (ch != '#') break;
        ch = skip_comment();
    }
    if (ch < '0' || ch > '9') fail(in.name, what + "expected a decimal number, found " + describe_byte(ch));
    std::uint64_t value = 0;
    for (; ch >= '0' && ch <= '9'; ch = std::fgetc(in.file)) {
        value = value * 10 + std::uint64_t(ch - '0');
        if (value > max) fail(in.name, what + "above " + std::to_string(max));
    }
    if (ch == '#') ch = skip_comment();
    if (!space(ch))
        fail(in.name, what + "expected whitespace after " + std::to_string(value) + ", found " + describe_byte(ch));
    if (value == 0) fail(in.name, what + "0; it must be at least 1");
    return value;
}

Image read_pnm(const Source& in, bool keep_16, const ReadLimits& limits) {
    char magic[2] = {};
    if (std::fread(magic, 1, 2, in.file) != 2 || magic[0] != 'P' || (magic[1] != '5' && magic[1] != '6'))
        fail(in.name, "not a binary PGM or PPM file");
    Image image;
    image.channels = magic[1] == '5' ? 1 : 3;
    const std::uint64_t width = pnm_field(in, "width", INT_MAX);
    const std::uint64_t height = pnm_field(in, "height", INT_MAX);
    const std::uint64_t maxval = pnm_field(in, "maxval", 65535);
    check_pixels(in, "the header declares", width, height, limits);
    image.width = int(width);
    image.height = int(height);
    const bool two_bytes = maxval > 255;
    image.depth = two_bytes && keep_16 ? 16 : 8;
    if (limits.accept)
        limits.accept(image.width, image.height, image.depth, image.depth == 16 && maxval != 65535 ? int(maxval) : 0, image.channels);

    const std::uint64_t samples = width * height * std::uint64_t(image.channels);
    const std::uint64_t need = samples * (two_bytes ? 2 : 1);
    const std::string declared = "the header declares " + dims(width, height) + " with maxval " + std::to_string(maxval);
    if (const auto left = in.left(); left && *left < need) truncated(in, declared, need, *left);
    // The samples are read where they stay and converted there.
    std::vector<std::uint8_t> narrow;
    std::vector<std::uint16_t> wide;
    const std::uint64_t got = two_bytes ? read_into(in, wide, need) : read_into(in, narrow, need);
    if (got < need) truncated(in, declared, need, got);
    if (two_bytes) to_native(wide, std::endian::big);

    auto sample = [&](std::size_t i) -> unsigned { return two_bytes ? wide[i] : narrow[i]; };
    if (maxval != 255 && maxval != 65535) {
        for (std::size_t i = 0; i < samples; ++i) {
            if (sample(i) > maxval) {
                const std::size_t pixel = i / std::size_t(image.channels);
                fail(in.name, "sample " + std::to_string(sample(i)) + " at x " + std::to_string(pixel % width) + ", y " +
                                  std::to_string(pixel / width) + " is above the header's maxval " + std::to_string(maxval));
            }
        }
    }
    auto to_255 = [&](unsigned v) { return std::uint8_t((v * 255 + unsigned(maxval) / 2) / unsigned(maxval)); };
    if (image.depth == 16) {
        image.wide = std::move(wide);
        image.maxval = maxval == 65535 ? 0 : int(maxval);
    } else if (two_bytes) {
        image.pixels.resize(samples);
        for (std::size_t i = 0; i < samples; ++i) image.pixels[i] = to_255(wide[i]);
    } else {
        if (maxval != 255)
            for (std::uint8_t& v : narrow) v = to_255(v);
        image.pixels = std::move(narrow);
    }
    return image;
}

// libpng reads through this, so a short file or a read error has its own message.
void png_read_bytes(png_structp png, png_bytep data, png_size_t bytes) {
    auto* in = static_cast<Source*>(png_get_io_ptr(png));
    const std::size_t got = std::fread(data, 1, bytes, in->file);
    in->consumed += got;
    if (got == bytes) return;
    if (std::ferror(in->file)) png_error(png, (std::string("read failed: ") + std::strerror(errno)).c_str());
    png_error(png, ("truncated: the PNG data ends after " + std::to_string(in->consumed) + " bytes").c_str());
}

// libpng's error messages in the words of what went wrong; the reader's own messages
// pass unchanged.
[[noreturn]] void png_read_fail(png_structp png, png_const_charp message) {
    const auto* in = static_cast<const Source*>(png_get_error_ptr(png));
    // libpng warns about each bad IHDR field, then fails with "Invalid IHDR data".
    const std::string m = std::string(message) == "Invalid IHDR data" && !in->warning.empty() ? in->warning : message;
    if (m.rfind("truncated:", 0) == 0 || m.rfind("read failed:", 0) == 0) fail(in->name, m);
    if (m.find("exceeds user limit") != std::string::npos)
        fail(in->name, "IHDR " + std::string(m.find("width") != std::string::npos ? "width" : "height") +
                           " is above the pixel limit (--max-megapixels raises it)");
    if (m == "Not enough image data") fail(in->name, "truncated: the compressed image data ends before the last row");
    if (m.find("CRC error") != std::string::npos) fail(in->name, "corrupt PNG: chunk " + m.substr(0, m.find(':')) + " fails its CRC check");
    if (m.find("IHDR") != std::string::npos) fail(in->name, "invalid IHDR: " + m);
    fail(in->name, "corrupt PNG: " + m);
}

[[noreturn]] void png_write_fail(png_structp png, png_const_charp message) {
    fail(static_cast<const char*>(png_get_error_ptr(png)), message);
}

void png_write_bytes(png_structp png, png_bytep data, png_size_t bytes) {
    if (std::fwrite(data, 1, bytes, static_cast<std::FILE*>(png_get_io_ptr(png))) != bytes)
        png_error(png, (std::string("write failed: ") + std::strerror(errno)).c_str());
}
void png_flush(png_structp png) { std::fflush(static_cast<std::FILE*>(png_get_io_ptr(png))); }
void png_read_warn(png_structp png, png_const_charp message) { static_cast<Source*>(png_get_error_ptr(png))->warning = message; }
void png_write_warn(png_structp, png_const_charp) {}

Image read_png(Source& in, bool keep_16, const ReadLimits& limits) {
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &in, png_read_fail, png_read_warn);
    png_infop info = png_create_info_struct(png);
    Image image;
    try {
        png_set_read_fn(png, &in, png_read_bytes);
        // libpng refuses a side above the pixel limit itself, and bounds what it
        // allocates for ancillary chunks.
        const auto side = png_uint_32(std::min<std::uint64_t>(limits.max_pixels, 0x7fffffff));
        png_set_user_limits(png, side, side);
        png_set_chunk_cache_max(png, 128);
        png_set_chunk_malloc_max(png, 8u << 20);
        // Nothing here uses an ancillary chunk (libpng still handles tRNS): text,
        // profiles and the rest are skipped as they are read, never held in memory.
        png_set_keep_unknown_chunks(png, PNG_HANDLE_CHUNK_NEVER, nullptr, -1);
        png_read_info(png, info);
        const std::uint64_t w = png_get_image_width(png, info), h = png_get_image_height(png, info);
        check_pixels(in, "IHDR declares", w, h, limits);
        // Deflate compresses at most 1032 to 1: a file holds at most that many bytes of
        // filtered rows.
        const std::uint64_t stored = (std::uint64_t(png_get_rowbytes(png, info)) + 1) * h;
        if (const auto left = in.left(); left && stored > *left * 1032)
            fail(in.name, "IHDR declares " + dims(w, h) + ", " + std::to_string(stored) + " bytes of image data; the " +
                              std::to_string(*left) + " bytes left in the file hold at most " +
                              std::to_string(*left * 1032));
        const int bit_depth = png_get_bit_depth(png, info);
        const bool wide = keep_16 && bit_depth == 16;
        if (bit_depth == 16 && !wide) png_set_strip_16(png);
        if (wide && std::endian::native == std::endian::little) png_set_swap(png);  // PNG stores MSB first
        png_set_packing(png);
        png_set_palette_to_rgb(png);
        png_set_expand_gray_1_2_4_to_8(png);
        const int passes = png_set_interlace_handling(png);
        png_read_update_info(png, info);
        image.width = int(w);
        image.height = int(h);
        image.channels = int(png_get_channels(png, info));
        image.depth = wide ? 16 : 8;
        if (image.channels == 2) fail(in.name, "grey with alpha is not supported");
        if (limits.accept) limits.accept(image.width, image.height, image.depth, 0, image.channels);
        const std::size_t row_bytes = png_get_rowbytes(png, info);
        // Straight into the image's samples, in the machine's byte order.
        auto read_rows = [&](auto& samples) {
            const std::size_t row_samples = row_bytes / sizeof(samples[0]);
            auto row = [&](std::size_t y) { return reinterpret_cast<png_bytep>(samples.data() + row_samples * y); };
            if (passes == 1) {
                // Row by row: from a pipe, memory grows with the rows that arrive.
                if (in.size) samples.reserve(row_samples * std::size_t(h));
                for (std::size_t y = 0; y < h; ++y) {
                    samples.resize(row_samples * (y + 1));
                    png_read_row(png, row(y), nullptr);
                }
            } else {
                samples.resize(row_samples * std::size_t(h));
                std::vector<png_bytep> rows(static_cast<std::size_t>(h));
                for (std::size_t y = 0; y < h; ++y) rows[y] = row(y);
                png_read_image(png, rows.data());
            }
        };
        if (wide) read_rows(image.wide);
        else read_rows(image.pixels);
    } catch (...) {
        png_destroy_read_struct(&png, &info, nullptr);
        throw;
    }
    png_destroy_read_struct(&png, &info, nullptr);
    return image;
}

std::string shown(const std::string& path) { return path == "-" ? "standard output" : path; }

// An image to write, a row at a time: fill(y, out) puts row y (the top row first) in
// `out` as width x channels samples, R, G, B(, A) or grey.
struct Rows {
    int width = 0, height = 0, channels = 0, depth = 8;
    unsigned maxval = 255;  // the samples' range: the depth's full range or less
    std::function<void(std::size_t y, std::uint16_t* out)> fill;
    std::size_t samples() const { return std::size_t(width) * std::size_t(channels); }
};

unsigned full_range(int depth) { return depth == 16 ? 65535 : 255; }
unsigned range_of(int depth, int maxval) {
    return maxval > 0 && unsigned(maxval) < full_range(depth) ? unsigned(maxval) : full_range(depth);
}

Rows rows_of(const std::string& path, const Image& image) {
    if (image.width <= 0 || image.height <= 0) fail(shown(path), "cannot write an empty image");
    if (image.depth != 8 && image.depth != 16) fail(shown(path), "cannot write " + std::to_string(image.depth) + "-bit samples");
    const std::size_t row = std::size_t(image.width) * std::size_t(image.channels);
    const std::size_t have = image.depth == 8 ? image.pixels.size() : image.wide.size();
    if (have < row * std::size_t(image.height)) fail(shown(path), "image data is shorter than its size");
    return {image.width, image.height, image.channels, image.depth, range_of(image.depth, image.maxval),
            [&image, row](std::size_t y, std::uint16_t* out) {
                if (image.depth == 8) std::copy_n(image.pixels.data() + row * y, row, out);
                else std::copy_n(image.wide.data() + row * y, row, out);
            }};
}

Rows rows_of(const std::string& path, const BufferView& b) {
    if (b.width <= 0 || b.height <= 0) fail(shown(path), "cannot write an empty image");
    if (b.elements != 1 && b.elements != 3 && b.elements != 4) fail(shown(path), "a buffer has 1, 3 or 4 elements per pixel");
    if (!b.bytes == !b.wide) fail(shown(path), "the buffer needs either 8-bit or 16-bit elements");
    const int depth = b.wide ? 16 : 8;
    const int channels = b.elements == 1 ? 1 : b.elements == 4 && b.keep_fourth ? 4 : 3;
    return {b.width, b.height, channels, depth, range_of(depth, b.maxval), [b, channels](std::size_t y, std::uint16_t* out) {
                const std::size_t row = b.bottom_up ? std::size_t(b.height) - 1 - y : y;
                const std::size_t pixels = std::size_t(b.width), at = row * pixels * std::size_t(b.elements);
                auto convert = [&](const auto* in) {
                    if (channels == 1) {
                        std::copy_n(in, pixels, out);
                        return;
                    }
                    for (std::size_t x = 0; x < pixels; ++x, in += b.elements, out += channels) {
                        out[0] = in[2];  // B, G, R to R, G, B
                        out[1] = in[1];
                        out[2] = in[0];
                        if (channels == 4) out[3] = in[3];
                    }
                };
                if (b.wide) convert(b.wide + at);
                else convert(b.bytes + at);
            }};
}

// Temporary files being written, removed by the signal handler. Written only while the
// signals are blocked.
constexpr int kSlots = 4;
char g_temporaries[kSlots][PATH_MAX];
volatile std::sig_atomic_t g_in_use[kSlots];
constexpr int kCleanupSignals[] = {SIGINT, SIGTERM, SIGHUP};

extern "C" void remove_temporaries(int sig) {
    for (int i = 0; i < kSlots; ++i)
        if (g_in_use[i]) ::unlink(g_temporaries[i]);
    std::raise(sig);  // the handler was reset to the default: die of the signal
}

class SignalsBlocked {
  public:
    SignalsBlocked() {
        sigset_t set;
        sigemptyset(&set);
        for (int s : kCleanupSignals) sigaddset(&set, s);
        ::sigprocmask(SIG_BLOCK, &set, &old_);
    }
    ~SignalsBlocked() { ::sigprocmask(SIG_SETMASK, &old_, nullptr); }

  private:
    sigset_t old_;
};

void install_cleanup_handlers() {
    static const bool installed = [] {
        struct sigaction action{};
        action.sa_handler = remove_temporaries;
        action.sa_flags = SA_RESETHAND | SA_NODEFER;
        sigemptyset(&action.sa_mask);
        for (int s : kCleanupSignals) {
            struct sigaction old{};
            // A signal the caller ignores (nohup) stays ignored.
            if (::sigaction(s, nullptr, &old) == 0 && old.sa_handler != SIG_IGN) ::sigaction(s, &action, nullptr);
        }
        return true;
    }();
    (void)installed;
}

}  // namespace

std::string extension(const std::string& path) {
    const std::string name = std::filesystem::path(path).filename().string();
    const auto dot = name.find_last_of('.');
    if (dot == std::string::npos || dot == 0) return "";
    std::string ext = name.substr(dot + 1);
    for (char& ch : ext) ch = char(std::tolower(static_cast<unsigned char>(ch)));
    return ext;
}

AtomicFile::AtomicFile(const std::string& path) : path_(path) {
    if (path == "-") {
        path_ = "standard output";
        file_ = stdout;
        return;
    }
    const std::filesystem::path p(path);
    std::error_code ec;
    if (std::filesystem::is_directory(p, ec)) fail(path, "is a directory");
    const std::filesystem::path dir = p.has_parent_path() ? p.parent_path() : std::filesystem::path(".");
    std::string name = ".";  // (built by appending: GCC 12 warns wrongly about "." + string)
    name.append(p.filename().string()).append(".tmp-XXXXXX");
    std::string temp = (dir / name).string();
    if (temp.size() >= PATH_MAX) fail(path, "the path is too long");
    install_cleanup_handlers();
    const SignalsBlocked blocked;
    const int fd = ::mkstemp(temp.data());
    if (fd < 0) fail(path, std::string("cannot create: ") + std::strerror(errno));
    temp_ = temp;
    for (int i = 0; i < kSlots && slot_ < 0; ++i) {
        if (!g_in_use[i]) {
            std::memcpy(g_temporaries[i], temp.c_str(), temp.size() + 1);
            g_in_use[i] = 1;
            slot_ = i;
        }
    }
    // mkstemp makes the file private. A file it replaces keeps its permissions (a
    // private file stays private, a read-only one read-only); a new file gets the
    // permissions a new file gets.
    struct stat old{};
    mode_t mode = 0;
    if (::lstat(path.c_str(), &old) == 0 && S_ISREG(old.st_mode)) {
        mode = old.st_mode & 0777;
    } else {
        const mode_t mask = ::umask(0);
        ::umask(mask);
        mode = 0666 & ~mask;
    }
    ::fchmod(fd, mode);
    file_ = ::fdopen(fd, "wb");
    if (!file_) {
        ::close(fd);
        std::remove(temp_.c_str());
        if (slot_ >= 0) g_in_use[slot_] = 0;
        fail(path, "cannot open for writing");
    }
}

AtomicFile::~AtomicFile() {
    if (!file_ || temp_.empty()) return;
    const SignalsBlocked blocked;
    std::fclose(file_);
    std::remove(temp_.c_str());
    if (slot_ >= 0) g_in_use[slot_] = 0;
}

void AtomicFile::write(const void* data, std::size_t bytes) {
    if (bytes && std::fwrite(data, 1, bytes, file_) != bytes) fail(path_, std::string("write failed: ") + std::strerror(errno));
}

void AtomicFile::commit() {
    if (temp_.empty()) {
        if (std::fflush(file_) != 0 || std::ferror(file_)) fail(path_, std::string("write failed: ") + std::strerror(errno));
        return;
    }
    const SignalsBlocked blocked;
    const bool flushed = std::fflush(file_) == 0 && !std::ferror(file_);
    const int saved = errno;
    const bool closed = std::fclose(file_) == 0;
    file_ = nullptr;
    int err = 0;
    if (!flushed || !closed) err = flushed ? errno : saved;
    else if (std::rename(temp_.c_str(), path_.c_str()) != 0) err = errno;
    if (err) std::remove(temp_.c_str());
    if (slot_ >= 0) g_in_use[slot_] = 0;
    if (err) fail(path_, std::string(flushed && closed ? "cannot write: " : "write failed: ") + std::strerror(err));
}

Image read_image(std::FILE* file, const std::string& name, bool keep_16, const ReadLimits& limits) {
    Source in(file, name);
    // One byte of look-ahead, put back: standard C guarantees that much on any stream.
    const int first = std::fgetc(file);
    if (first == EOF) {
        if (std::ferror(file)) fail(name, std::string("read failed: ") + std::strerror(errno));
        fail(name, "empty file");
    }
    std::ungetc(first, file);
    if (first == 0x89) return read_png(in, keep_16, limits);
    if (first == 'P') return read_pnm(in, keep_16, limits);
    fail(name, "unknown file type (PNG, binary PGM or PPM expected)");
}

Image read_image(const std::string& path, bool keep_16, const ReadLimits& limits) {
    std::FILE* file = nullptr;
    const File owner = open_input(path, file);
    return read_image(file, input_name(path), keep_16, limits);
}

Image read_raw(std::FILE* file, const std::string& name, const RawLayout& layout, const ReadLimits& limits) {
    const Source in(file, name);
    const int width = layout.width, height = layout.height, depth = layout.depth;
    if (width <= 0 || height <= 0) fail(name, "a raw frame needs a positive --width and --height");
    if (depth != 8 && depth != 16) fail(name, "unsupported depth " + std::to_string(depth) + " (8 or 16)");
    check_pixels(in, "--width and --height ask for", std::uint64_t(width), std::uint64_t(height), limits);
    if (limits.accept) limits.accept(width, height, depth, 0, 1);
    const bool packed = layout.row_bytes != 0;
    const std::uint64_t row = packed ? layout.row_bytes : std::uint64_t(width) * std::uint64_t(depth / 8);
    const std::uint64_t stride = layout.stride ? layout.stride : row;
    if (!packed && depth == 16 && stride % 2 != 0) fail(name, "rows of 16-bit samples " + std::to_string(stride) + " bytes apart: an odd stride");
    if (stride < row) fail(name, "rows " + std::to_string(stride) + " bytes apart are shorter than a row's " + std::to_string(row) + " bytes");
    // The last row needs its samples' bytes only; its padding may be there or not.
    const std::uint64_t least = std::uint64_t(height - 1) * stride + row, most = std::uint64_t(height) * stride;
    std::string frame = "a " + dims(std::uint64_t(width), std::uint64_t(height)) + " " +
                        (packed ? "frame of " + layout.packing + " rows" : std::to_string(depth) + "-bit frame");
    if (layout.stride) frame += " " + std::to_string(stride) + " bytes apart";
    const std::string holder = in.size ? ", the file has " : ", the input has ";
    auto short_by = [&](std::uint64_t have) {
        fail(name, "truncated: " + frame + (least == most ? " is " : " needs at least ") + std::to_string(least) + " bytes" + holder +
                       std::to_string(have));
    };
    auto long_by = [&](const std::string& have) {
        fail(name, "wrong size: " + frame + (least == most ? " is " : " takes at most ") + std::to_string(most) + " bytes" + holder + have);
    };
    if (const auto left = in.left(); left && *left < least) short_by(*left);
    if (const auto left = in.left(); left && *left > most) long_by(std::to_string(*left));
    Image image{width, height, 1, packed ? 8 : depth, {}, {}, 0, layout.stride ? std::size_t(stride) : 0};
    const std::uint64_t got = image.depth == 8 ? read_into(in, image.pixels, most) : read_into(in, image.wide, most);
    if (got < least) short_by(got);
    if (got == most && std::fgetc(file) != EOF) long_by("more");
    to_native(image.wide, std::endian::little);
    return image;
}

Image read_raw(const std::string& path, const RawLayout& layout, const ReadLimits& limits) {
    std::FILE* file = nullptr;
    const File owner = open_input(path, file);
    return read_raw(file, input_name(path), layout, limits);
}

namespace {

void write_png_rows(const std::string& path, const Rows& image) {
    AtomicFile out(path);
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, const_cast<char*>(path.c_str()), png_write_fail, png_write_warn);
    png_infop info = png_create_info_struct(png);
    try {
        png_set_write_fn(png, out.get(), png_write_bytes, png_flush);
        const int type = image.channels == 1 ? PNG_COLOR_TYPE_GRAY
                         : image.channels == 3 ? PNG_COLOR_TYPE_RGB
                                               : PNG_COLOR_TYPE_RGB_ALPHA;
        png_set_IHDR(png, info, png_uint_32(image.width), png_uint_32(image.height), image.depth, type,
                     PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
        // Samples of a smaller range are scaled to the full one, and sBIT keeps how many
        // bits are significant.
        const unsigned full = full_range(image.depth), maxval = image.maxval;
        if (maxval != full) {
            const auto bits = png_byte(std::bit_width(maxval));
            png_color_8 sig{bits, bits, bits, bits, bits};
            png_set_sBIT(png, info, &sig);
        }
        png_write_info(png, info);
        const std::size_t n = image.samples();
        std::vector<std::uint16_t> samples(n);
        std::vector<std::uint8_t> row(n * std::size_t(image.depth / 8));
        for (std::size_t y = 0; y < std::size_t(image.height); ++y) {
            image.fill(y, samples.data());
            for (std::size_t i = 0; i < n; ++i) {
                unsigned v = std::min<unsigned>(samples[i], maxval);
                if (maxval != full) v = (v * full + maxval / 2) / maxval;
                if (image.depth == 8) {
                    row[i] = std::uint8_t(v);
                } else {  // most significant byte first
                    row[2 * i] = std::uint8_t(v >> 8);
                    row[2 * i + 1] = std::uint8_t(v);
                }
            }
            png_write_row(png, row.data());
        }
        png_write_end(png, nullptr);
    } catch (...) {
        png_destroy_write_struct(&png, &info);
        throw;
    }
    png_destroy_write_struct(&png, &info);
    out.commit();
}

void write_pnm_rows(const std::string& path, const Rows& image) {
    if (image.channels != 1 && image.channels != 3)
        fail(shown(path), image.channels == 4 ? "PPM has no fourth channel: use --format bgr or a .png or .bmp file"
                                              : "PGM/PPM take 1 or 3 channels");
    const std::string ext = extension(path);
    if (ext == "pgm" && image.channels != 1) fail(path, "a PGM file holds grey images: use .ppm for colour");
    if (ext == "ppm" && image.channels != 3) fail(path, "a PPM file holds colour images: use .pgm for grey");
    AtomicFile out(path);
    const unsigned maxval = image.maxval;
    const std::string header = std::string(image.channels == 1 ? "P5" : "P6") + "\n" + std::to_string(image.width) +
                               " " + std::to_string(image.height) + "\n" + std::to_string(maxval) + "\n";
    out.write(header.data(), header.size());
    const std::size_t n = image.samples();
    std::vector<std::uint16_t> samples(n);
    std::vector<std::uint8_t> row;
    row.reserve(n * (maxval > 255 ? 2 : 1));
    for (std::size_t y = 0; y < std::size_t(image.height); ++y) {
        image.fill(y, samples.data());
        row.clear();
        for (std::size_t i = 0; i < n; ++i) {
            const unsigned v = std::min<unsigned>(samples[i], maxval);
            if (maxval > 255) row.push_back(std::uint8_t(v >> 8));
            row.push_back(std::uint8_t(v));
        }
        out.write(row.data(), row.size());
    }
    out.commit();
}

void write_rows(const std::string& path, const Rows& image) {
    const std::string ext = extension(path);
    if (ext == "png") return write_png_rows(path, image);
    if (ext == "pgm" || ext == "ppm" || ext == "pnm" || path == "-") return write_pnm_rows(path, image);
    std::error_code ec;
    if (std::filesystem::is_directory(path, ec)) fail(path, "is a directory");
    fail(path, "unknown image type (use .png, .pgm or .ppm)");
}

}  // namespace

void write_png(const std::string& path, const Image& image) { write_png_rows(path, rows_of(path, image)); }
void write_png(const std::string& path, const BufferView& buffer) { write_png_rows(path, rows_of(path, buffer)); }
void write_pnm(const std::string& path, const Image& image) { write_pnm_rows(path, rows_of(path, image)); }
void write_pnm(const std::string& path, const BufferView& buffer) { write_pnm_rows(path, rows_of(path, buffer)); }
void write_image(const std::string& path, const Image& image) { write_rows(path, rows_of(path, image)); }
void write_image(const std::string& path, const BufferView& buffer) { write_rows(path, rows_of(path, buffer)); }

void write_bmp(const std::string& path, const std::uint8_t* rows, int width, int height, int bytes_per_pixel,
               bool bottom_up) {
    if (width <= 0 || height <= 0) fail(path, "cannot write an empty image");
    if (bytes_per_pixel != 1 && bytes_per_pixel != 3 && bytes_per_pixel != 4)
        fail(path, "BMP takes 1, 3 or 4 bytes per pixel");
    const std::uint32_t row_bytes = std::uint32_t(width) * std::uint32_t(bytes_per_pixel);
    const std::uint32_t padded = (row_bytes + 3) & ~3u;
    const std::uint32_t palette = bytes_per_pixel == 1 ? 256 * 4 : 0;
    const std::uint32_t offset = 14 + 40 + palette;
    const std::uint64_t file_size = std::uint64_t(offset) + std::uint64_t(padded) * std::uint64_t(height);
    if (file_size > 0xFFFFFFFFu) fail(path, "too large for a BMP file");

    std::vector<std::uint8_t> header(offset, 0);
    auto put16 = [&](std::size_t at, std::uint32_t v) {
        header[at] = std::uint8_t(v);
        header[at + 1] = std::uint8_t(v >> 8);
    };
    auto put32 = [&](std::size_t at, std::uint32_t v) {
        put16(at, v & 0xFFFF);
        put16(at + 2, v >> 16);
    };
    header[0] = 'B';
    header[1] = 'M';
    put32(2, std::uint32_t(file_size));
    put32(10, offset);
    put32(14, 40);                   // BITMAPINFOHEADER
    put32(18, std::uint32_t(width));
    // A positive height is BMP's bottom-up order; a negative one marks top-down rows.
    put32(22, bottom_up ? std::uint32_t(height) : std::uint32_t(-std::int64_t(height)));
    put16(26, 1);                    // planes
    put16(28, std::uint32_t(bytes_per_pixel * 8));
    put32(30, 0);                    // BI_RGB
    put32(34, padded * std::uint32_t(height));
    put32(38, 2835);                 // 72 dpi
    put32(42, 2835);
    if (bytes_per_pixel == 1) {
        put32(46, 256);
        for (std::uint32_t i = 0; i < 256; ++i) put32(54 + 4 * i, i | i << 8 | i << 16);
    }
    AtomicFile out(path);
    out.write(header.data(), header.size());
    const std::uint8_t zeros[4] = {};
    for (int y = 0; y < height; ++y) {
        out.write(rows + std::size_t(y) * row_bytes, row_bytes);
        out.write(zeros, padded - row_bytes);
    }
    out.commit();
}

Image from_bgr(const std::uint8_t* bgr, int width, int height, int stride, bool keep_fourth) {
    const int channels = keep_fourth && stride >= 4 ? 4 : 3;
    Image image{width, height, channels, 8, std::vector<std::uint8_t>(std::size_t(width) * std::size_t(height) * std::size_t(channels)), {}, 0};
    for (std::size_t p = 0; p < std::size_t(width) * std::size_t(height); ++p) {
        const std::uint8_t* px = bgr + p * std::size_t(stride);
        std::uint8_t* out = &image.pixels[p * std::size_t(channels)];
        out[0] = px[2];
        out[1] = px[1];
        out[2] = px[0];
        if (channels == 4) out[3] = px[3];
    }
    return image;
}

}  // namespace qzrcfa::tools
