// Drives the built qzrcfa-demosaic and qzrcfa-quality programs: round trips through
// every input and output format against direct calls of the exports, every error
// case with its exit status and its one line on standard error, and no partial file
// left behind.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "image_io.h"
#include "qzrcfa.h"
#include "qzrcfa.hpp"
#include "quality.h"

namespace {

namespace fs = std::filesystem;
using qzrcfa::tools::Image;

struct Outcome {
    int status;
    std::string out, err;
};

std::string slurp(const fs::path& p) {
    std::ifstream in(p, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void spit(const fs::path& p, const std::string& bytes) {
    std::ofstream out(p, std::ios::binary);
    out.write(bytes.data(), std::streamsize(bytes.size()));
}

std::string quote(const std::string& s) {
    std::string q = "'";
    for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return q + "'";
}

// A fresh directory per test, under the test's working directory.
class Cli : public ::testing::Test {
  protected:
    void SetUp() override {
        dir_ = fs::current_path() / ("cli-" + std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()));
        fs::remove_all(dir_);
        fs::create_directories(dir_);
    }

    fs::path path(const std::string& name) const { return dir_ / name; }

    // Runs a program with `args` (already quoted where needed); `prefix` runs before it
    // in the same shell (limits, traps).
    Outcome run(const std::string& program, const std::string& args, const std::string& prefix = "") const {
        const fs::path out = dir_ / "..stdout", err = dir_ / "..stderr";
        const std::string cmd = "cd " + quote(dir_.string()) + " && " + prefix + " " + quote(program) + " " + args +
                                " >" + quote(out.string()) + " 2>" + quote(err.string()) + " </dev/null";
        const int raw = std::system(("sh -c " + quote(cmd)).c_str());
        Outcome r{WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw), slurp(out), slurp(err)};
        fs::remove(out);
        fs::remove(err);
        return r;
    }
    Outcome tool(const std::string& args, const std::string& prefix = "") const { return run(QZRCFA_DEMOSAIC, args, prefix); }

    std::set<std::string> files() const {
        std::set<std::string> out;
        for (const auto& e : fs::directory_iterator(dir_)) out.insert(e.path().filename().string());
        return out;
    }

    fs::path dir_;
};

// Test frames and independent little writers for them.
std::vector<std::uint8_t> frame8(int w, int h, unsigned seed) {
    std::mt19937 rng(seed);
    std::vector<std::uint8_t> f(std::size_t(w) * std::size_t(h));
    for (auto& v : f) v = std::uint8_t(rng());
    return f;
}

std::vector<std::uint16_t> frame16(int w, int h, unsigned seed) {
    std::mt19937 rng(seed);
    std::vector<std::uint16_t> f(std::size_t(w) * std::size_t(h));
    for (auto& v : f) v = std::uint16_t(rng());
    return f;
}

std::string pgm8(int w, int h, const std::vector<std::uint8_t>& s) {
    return "P5\n# a comment\n" + std::to_string(w) + " " + std::to_string(h) + "\n255\n" + std::string(s.begin(), s.end());
}

std::string pgm16(int w, int h, const std::vector<std::uint16_t>& s) {
    std::string out = "P5 " + std::to_string(w) + " " + std::to_string(h) + " 65535\n";
    for (std::uint16_t v : s) out += {char(v >> 8), char(v & 0xFF)};
    return out;
}

std::string raw16le(const std::vector<std::uint16_t>& s) {
    std::string out;
    for (std::uint16_t v : s) out += {char(v & 0xFF), char(v >> 8)};
    return out;
}

// Parses a binary PPM/PGM of maxval 255 or 65535: width, height, channels, samples.
struct Pnm {
    int width = 0, height = 0, channels = 0, maxval = 0;
    std::vector<unsigned> samples;
};

Pnm parse_pnm(const std::string& bytes) {
    Pnm p;
    std::istringstream in(bytes);
    std::string magic;
    in >> magic >> p.width >> p.height >> p.maxval;
    in.get();
    p.channels = magic == "P6" ? 3 : 1;
    const std::size_t n = std::size_t(p.width) * std::size_t(p.height) * std::size_t(p.channels);
    for (std::size_t i = 0; i < n; ++i) {
        unsigned v = std::uint8_t(in.get());
        if (p.maxval > 255) v = v << 8 | std::uint8_t(in.get());
        p.samples.push_back(v);
    }
    if (!in) p.samples.clear();
    return p;
}

// The image a person sees: rows top to bottom, RGB, from an interface buffer (B, G,
// R, stride elements per pixel), given which way its rows run.
template <class T>
std::vector<unsigned> picture(const std::vector<T>& buffer, int w, int h, int stride, bool bottom_up, int channels = 3) {
    std::vector<unsigned> out;
    for (int y = 0; y < h; ++y) {
        const int row = bottom_up ? h - 1 - y : y;
        for (int x = 0; x < w; ++x) {
            const T* px = &buffer[(std::size_t(row) * std::size_t(w) + std::size_t(x)) * std::size_t(stride)];
            if (channels == 1) {
                out.push_back(px[0]);
                continue;
            }
            out.push_back(px[2]);
            out.push_back(px[1]);
            out.push_back(px[0]);
            if (channels == 4) out.push_back(px[3]);
        }
    }
    return out;
}

template <class T>
std::vector<unsigned> samples_of(const std::vector<T>& v) {
    return {v.begin(), v.end()};
}

TEST_F(Cli, HelpIsAManualPage) {
    const Outcome r = tool("--help");
    EXPECT_EQ(r.status, 0);
    for (const char* section : {"NAME", "SYNOPSIS", "DESCRIPTION", "OPTIONS", "EXIT STATUS", "EXAMPLES", "--all", "--time",
                                "--depth", ".bmp"})
        EXPECT_NE(r.out.find(section), std::string::npos) << section;
    EXPECT_TRUE(r.err.empty());
}

TEST_F(Cli, EightBitFramesGiveTheExportsOutputFromEveryInputFormat) {
    const int w = 37, h = 30;
    const auto raw = frame8(w, h, 1);
    spit(path("f.pgm"), pgm8(w, h, raw));
    spit(path("f.raw"), std::string(raw.begin(), raw.end()));
    qzrcfa::tools::write_png(path("f.png").string(), Image{w, h, 1, 8, raw, {}});

    // Top-down and bottom-up members of the same pattern, straight from the library.
    std::vector<std::uint8_t> top(std::size_t(w * h * 3)), bottom(std::size_t(w * h * 3));
    std::vector<std::uint8_t> copy = raw;
    QZRCFA_NearestNeighbor_GRBG(copy.data(), w, h, top.data(), 24);
    QZRCFA_NearestNeighbor_GRBG_Flip(copy.data(), w, h, bottom.data(), 24);

    for (const std::string input : {"f.pgm", "f.png", "f.raw --width 37 --height 30", "f.raw --width 37 --height 30 --depth 8"}) {
        SCOPED_TRACE(input);
        for (const bool flip : {false, true}) {
            const Outcome r = tool("-m nearest -p GRBG -o out.ppm " + std::string(flip ? "--flip " : "") + input);
            ASSERT_EQ(r.status, 0) << r.err;
            EXPECT_TRUE(r.err.empty()) << r.err;
            const Pnm p = parse_pnm(slurp(path("out.ppm")));
            EXPECT_EQ(p.width, w);
            EXPECT_EQ(p.height, h);
            EXPECT_EQ(p.maxval, 255);
            // The file shows the picture upright whichever member computed it.
            EXPECT_EQ(p.samples, flip ? picture(bottom, w, h, 3, true) : picture(top, w, h, 3, false));
        }
    }
}

TEST_F(Cli, PngOutputOfBgraCarriesTheFourthElementAsAlpha) {
    const int w = 20, h = 14;
    const auto raw = frame8(w, h, 2);
    spit(path("f.pgm"), pgm8(w, h, raw));
    // The tool starts from an opaque buffer; the RGGB member pre-fills with 255 anyway,
    // and its border fill writes the last pixel of each middle row into elements 1..3.
    std::vector<std::uint8_t> expected(std::size_t(w * h * 4), 0xFF), copy = raw;
    QZRCFA_NearestNeighbor_RGGB(copy.data(), w, h, expected.data(), 32);
    const Outcome r = tool("-m nearest -f bgra -o out.png f.pgm");
    ASSERT_EQ(r.status, 0) << r.err;
    const Image png = qzrcfa::tools::read_png(path("out.png").string());
    EXPECT_EQ(png.channels, 4);
    EXPECT_EQ(samples_of(png.pixels), picture(expected, w, h, 4, false, 4));
}

TEST_F(Cli, SixteenBitFramesGiveSixteenBitImages) {
    const int w = 21, h = 16;
    const auto raw = frame16(w, h, 3);
    spit(path("f.pgm"), pgm16(w, h, raw));
    spit(path("f.raw"), raw16le(raw));
    qzrcfa::tools::write_png(path("f.png").string(), Image{w, h, 1, 16, {}, raw});
    for (const std::string input : {"f.pgm", "f.png", "f.raw --width 21 --height 16 --depth 16"}) {
        SCOPED_TRACE(input);
        const Outcome r = tool("-m nearest -p BGGR -o out.png " + input);
        ASSERT_EQ(r.status, 0) << r.err;
        std::vector<std::uint16_t> expected(std::size_t(w * h * 3)), copy = raw;
        QZRCFA_NearestNeighbor_BGGR_16Bits(copy.data(), w, h, expected.data(), 24);
        const Image png = qzrcfa::tools::read_png(path("out.png").string(), true);
        EXPECT_EQ(png.depth, 16);
        EXPECT_EQ(samples_of(png.wide), picture(expected, w, h, 3, false));

        ASSERT_EQ(tool("-m nearest -f gray --flip -o grey.pgm " + input).status, 0);
        std::vector<std::uint16_t> grey(std::size_t(w * h + 2));
        QZRCFA_NearestNeighbor_BGGR_Gray_Flip_16Bits(copy.data(), w, h, grey.data());
        grey.resize(std::size_t(w * h));
        const Pnm p = parse_pnm(slurp(path("grey.pgm")));
        EXPECT_EQ(p.maxval, 65535);
        EXPECT_EQ(p.samples, picture(grey, w, h, 1, true, 1));
    }
}

// Reads a BMP written by the tool: its header fields and its rows as stored.
struct Bmp {
    std::int32_t width = 0, height = 0;
    int bits = 0;
    std::uint32_t offset = 0;
    std::string bytes;
};

Bmp parse_bmp(const std::string& bytes) {
    auto u32 = [&](std::size_t at) {
        return std::uint32_t(std::uint8_t(bytes[at])) | std::uint32_t(std::uint8_t(bytes[at + 1])) << 8 |
               std::uint32_t(std::uint8_t(bytes[at + 2])) << 16 | std::uint32_t(std::uint8_t(bytes[at + 3])) << 24;
    };
    Bmp b;
    if (bytes.size() < 54 || bytes[0] != 'B' || bytes[1] != 'M') return b;
    b.offset = u32(10);
    b.width = std::int32_t(u32(18));
    b.height = std::int32_t(u32(22));
    b.bits = int(std::uint8_t(bytes[28])) | int(std::uint8_t(bytes[29])) << 8;
    b.bytes = bytes;
    EXPECT_EQ(u32(2), bytes.size());
    return b;
}

TEST_F(Cli, BmpIsWrittenStraightFromTheBottomUpMember) {
    const int w = 37, h = 12;  // 111 bytes a row at 24 bits: one byte of padding
    const auto raw = frame8(w, h, 4);
    spit(path("f.pgm"), pgm8(w, h, raw));
    struct Case {
        const char* args;
        int bytes_per_pixel;
        int (*fn)(unsigned char*, int, int, unsigned char*, unsigned short);
    };
    const Case cases[] = {
        {"-m nearest -p GBRG -o out.bmp f.pgm", 3, QZRCFA_NearestNeighbor_GBRG_Flip},
        {"-m nearest -p GBRG --flip -o out.bmp f.pgm", 3, QZRCFA_NearestNeighbor_GBRG_Flip},
        {"-m nearest -p BGGR -f bgra -o out.bmp f.pgm", 4, QZRCFA_NearestNeighbor_BGGR_Flip},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.args);
        const Outcome r = tool(c.args);
        ASSERT_EQ(r.status, 0) << r.err;
        const Bmp b = parse_bmp(slurp(path("out.bmp")));
        EXPECT_EQ(b.width, w);
        EXPECT_EQ(b.height, h) << "positive: rows stored bottom-up";
        EXPECT_EQ(b.bits, c.bytes_per_pixel * 8);
        std::vector<std::uint8_t> expected(std::size_t(w * h * c.bytes_per_pixel), 0xFF), copy = raw;
        c.fn(copy.data(), w, h, expected.data(), std::uint16_t(c.bytes_per_pixel * 8));
        const std::size_t row = std::size_t(w * c.bytes_per_pixel), padded = (row + 3) / 4 * 4;
        ASSERT_EQ(b.bytes.size(), b.offset + padded * std::size_t(h));
        for (int y = 0; y < h; ++y) {
            // Row y of the file is row y of the export's buffer, unchanged.
            EXPECT_EQ(b.bytes.substr(b.offset + std::size_t(y) * padded, row),
                      std::string(expected.begin() + std::ptrdiff_t(std::size_t(y) * row),
                                  expected.begin() + std::ptrdiff_t(std::size_t(y + 1) * row)))
                << "row " << y;
            EXPECT_EQ(b.bytes.substr(b.offset + std::size_t(y) * padded + row, padded - row), std::string(padded - row, '\0'));
        }
    }
    // Laplacian2 has no bottom-up member: its top-down rows make a top-down BMP.
    ASSERT_EQ(tool("-m laplacian2 -o l2.bmp f.pgm").status, 0);
    const Bmp l2 = parse_bmp(slurp(path("l2.bmp")));
    EXPECT_EQ(l2.height, -h);
    std::vector<std::uint8_t> expected(std::size_t(w * h * 3), 0xFF), copy = raw;
    QZRCFA_Laplacian2_RGGB(copy.data(), w, h, expected.data(), 24);
    EXPECT_EQ(l2.bytes.substr(l2.offset, std::size_t(w * 3)), std::string(expected.begin(), expected.begin() + w * 3));
}

TEST_F(Cli, AllWritesEveryMethodAndALabelledMontage) {
    const int w = 64, h = 48;
    spit(path("frame.pgm"), pgm8(w, h, frame8(w, h, 5)));
    const Outcome r = tool("--all -d out frame.pgm");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(r.err.empty()) << "no progress bar when standard error is not a terminal: " << r.err;
    std::set<std::string> expected = {"frame-montage.png"};
    const int methods = 7;  // all of them exist for RGGB top-down
    for (const char* m : {"nearest", "bilinear", "edge1", "edge2", "laplacian", "laplacian2", "smoothhue"}) {
        ASSERT_EQ(tool(std::string("-m ") + m + " -o " + m + ".png frame.pgm").status, 0) << m;
        expected.insert(std::string("frame-") + m + ".png");
        // Each file of --all is the single-method result.
        EXPECT_EQ(slurp(path("out") / (std::string("frame-") + m + ".png")), slurp(path(std::string(m) + ".png"))) << m;
    }
    std::set<std::string> written;
    for (const auto& e : fs::directory_iterator(path("out"))) written.insert(e.path().filename().string());
    EXPECT_EQ(written, expected);
    // The raw view and one tile per method, four to a row, each of the 48-pixel crop
    // enlarged to 240 pixels.
    const Image montage = qzrcfa::tools::read_png((path("out") / "frame-montage.png").string());
    const int tiles = methods + 1, columns = std::min(4, tiles), rows = (tiles + 3) / 4;
    EXPECT_EQ(montage.width, 10 + columns * (240 + 10));
    EXPECT_EQ(montage.height, 10 + rows * (14 + 6 + 240 + 10));
}

TEST_F(Cli, TimePrintsMillisecondsAndMegapixelsPerSecond) {
    spit(path("a.pgm"), pgm8(40, 30, frame8(40, 30, 6)));
    spit(path("b.pgm"), pgm8(40, 30, frame8(40, 30, 7)));
    const Outcome r = tool("--time --repeat 3 -m nearest -d out a.pgm b.pgm");
    ASSERT_EQ(r.status, 0) << r.err;
    // "NAME nearest: 1.234 ms per frame, 56.7 MP/s"
    auto well_formed = [](const std::string& l) {
        char name[8] = {}, method[16] = {};
        double ms = -1, mps = -1;
        int end = 0;
        if (std::sscanf(l.c_str(), "%7s %15[a-z]: %lf ms per frame, %lf MP/s%n", name, method, &ms, &mps, &end) != 4)
            return false;
        const std::size_t dot1 = l.find('.'), dot2 = l.rfind('.');
        return end == int(l.size()) && (std::string(name) == "a" || std::string(name) == "b") &&
               std::string(method) == "nearest" && ms >= 0 && mps >= 0 && l.find(" ms") - dot1 == 4 &&
               l.find(" MP/s") - dot2 == 2;
    };
    std::istringstream lines(r.out);
    int n = 0;
    for (std::string l; std::getline(lines, l); ++n) EXPECT_TRUE(well_formed(l)) << l;
    EXPECT_EQ(n, 2);
    EXPECT_TRUE(fs::exists(path("out/a.png")) && fs::exists(path("out/b.png")));
}

// A failing call: what is set up, the arguments, the exit status and a word of the
// one-line message.
struct Failure {
    const char* name;
    std::function<void(const fs::path&)> setup;
    const char* args;
    int status;
    const char* message;
};

void good_frame(const fs::path& d) { spit(d / "f.pgm", pgm8(16, 12, frame8(16, 12, 8))); }

const Failure kFailures[] = {
    {"truncated PGM", [](const fs::path& d) { spit(d / "f.pgm", pgm8(16, 12, frame8(16, 12, 9)).substr(0, 100)); },
     "-o out.png f.pgm", 1, "truncated"},
    {"truncated 16-bit PGM", [](const fs::path& d) { spit(d / "f.pgm", pgm16(16, 12, frame16(16, 12, 9)).substr(0, 300)); },
     "-m nearest -o out.png f.pgm", 1, "truncated"},
    {"malformed PGM header", [](const fs::path& d) { spit(d / "f.pgm", "P5\n16 x\n255\n"); }, "-o out.png f.pgm", 1,
     "malformed header"},
    {"raw file too short", [](const fs::path& d) { spit(d / "f.raw", std::string(100, 'x')); },
     "--width 16 --height 12 -o out.png f.raw", 1, "truncated"},
    {"raw file too long", [](const fs::path& d) { spit(d / "f.raw", std::string(16 * 12 + 1, 'x')); },
     "--width 16 --height 12 -o out.png f.raw", 1, "wrong size"},
    {"16-bit raw read as 8-bit", [](const fs::path& d) { spit(d / "f.raw", std::string(16 * 12 * 2, 'x')); },
     "--width 16 --height 12 -o out.png f.raw", 1, "wrong size"},
    {"unreadable path", [](const fs::path&) {}, "-o out.png missing.pgm", 1, "cannot open"},
    {"directory as input", [](const fs::path& d) { fs::create_directory(d / "sub"); }, "-o out.png sub", 1,
     "is a directory"},
    {"empty file", [](const fs::path& d) { spit(d / "f.pgm", ""); }, "-o out.png f.pgm", 1, "empty file"},
    {"not an image", [](const fs::path& d) { spit(d / "f.pgm", "hello, world\n"); }, "-o out.png f.pgm", 1,
     "unknown file type"},
    {"colour PNG as a raw frame",
     [](const fs::path& d) {
         qzrcfa::tools::write_png((d / "c.png").string(), Image{8, 8, 3, 8, std::vector<std::uint8_t>(192, 9), {}});
     },
     "-o out.png c.png", 1, "3 channels"},
    {"frame below the method's minimum", [](const fs::path& d) { spit(d / "f.pgm", pgm8(1, 5, frame8(1, 5, 1))); },
     "-m nearest -o out.png f.pgm", 1, "minimum"},
    {"--all on a frame too small for one of the methods", [](const fs::path& d) { spit(d / "f.pgm", pgm8(3, 3, frame8(3, 3, 1))); },
     "--all -d . f.pgm", 1, "4x4 minimum of laplacian"},
    {"combination without an export", good_frame, "-m edge2 -p BGGR -o out.png f.pgm", 1, "RGGB only"},
    {"16-bit frame with an 8-bit method", [](const fs::path& d) { spit(d / "f.pgm", pgm16(16, 12, frame16(16, 12, 2))); },
     "-m bilinear -o out.png f.pgm", 1, "16-bit"},
    {"16-bit frame to BMP", [](const fs::path& d) { spit(d / "f.raw", raw16le(frame16(16, 12, 2))); },
     "-m nearest --width 16 --height 12 --depth 16 -o out.bmp f.raw", 1,
     "BMP holds 8-bit samples"},
    {"bgra to PPM", good_frame, "-m nearest -f bgra -o out.ppm f.pgm", 1, "fourth channel"},
    {"colour to PGM", good_frame, "-m nearest -o out.pgm f.pgm", 1, "use .ppm"},
    {"unknown output type", good_frame, "-m nearest -o out.jpg f.pgm", 1, "unknown image type"},
    {"output in a missing directory", good_frame, "-m nearest -o nowhere/out.png f.pgm", 1, "cannot create"},
    {"unknown --method value", good_frame, "-m fast -o out.png f.pgm", 2, "unknown -m value 'fast'"},
    {"unknown --pattern value", good_frame, "--pattern RGBG -o out.png f.pgm", 2, "unknown --pattern value 'RGBG'"},
    {"unknown --format value", good_frame, "--format rgb -o out.png f.pgm", 2, "unknown --format value 'rgb'"},
    {"unknown --type value", good_frame, "--type tiff -d . f.pgm", 2, "unknown --type value"},
    {"unsupported --depth", good_frame, "--width 16 --height 12 --depth 12 -o out.png f.pgm", 2,
     "unknown --depth value '12'"},
    {"--depth without a raw size", good_frame, "--depth 16 -o out.png f.pgm", 2, "headerless raw"},
    {"--width without --height", good_frame, "--width 16 -o out.png f.pgm", 2, "both --width and --height"},
    {"bad --width", good_frame, "--width 0 --height 12 -o out.png f.pgm", 2, "--width takes"},
    {"unknown option", good_frame, "--fast -o out.png f.pgm", 2, "unknown option '--fast'"},
    {"option without its value", good_frame, "f.pgm -o", 2, "-o needs a value"},
    {"no input", good_frame, "-o out.png", 2, "no input"},
    {"no output named", good_frame, "f.pgm", 2, "-o FILE or -d DIRECTORY"},
    {"-o with --all", good_frame, "--all -o out.png f.pgm", 2, "-d DIRECTORY"},
    {"--all with grey output", good_frame, "--all -f gray -d . f.pgm", 2, "colour methods"},
};

TEST_F(Cli, BadInputGivesOneLineAnExitStatusAndNoFile) {
    for (const Failure& f : kFailures) {
        SCOPED_TRACE(f.name);
        fs::remove_all(dir_);
        fs::create_directories(dir_);
        f.setup(dir_);
        spit(path("keep.png"), "an earlier output");
        const std::set<std::string> before = files();
        const Outcome t = tool(f.args);
        EXPECT_EQ(t.status, f.status) << t.err;
        EXPECT_EQ(t.err.rfind("qzrcfa-demosaic: ", 0), 0u) << t.err;
        EXPECT_EQ(std::count(t.err.begin(), t.err.end(), '\n'), 1) << t.err;
        EXPECT_NE(t.err.find(f.message), std::string::npos) << t.err;
        EXPECT_TRUE(t.out.empty()) << t.out;
        EXPECT_EQ(files(), before) << "a file was left behind";
        EXPECT_EQ(slurp(path("keep.png")), "an earlier output");
    }
}

TEST_F(Cli, AWriteThatFailsHalfwayLeavesNoPartialFileAndKeepsTheOldOne) {
    const int w = 256, h = 256;  // about 200 kB of PPM
    spit(path("f.pgm"), pgm8(w, h, frame8(w, h, 10)));
    spit(path("out.ppm"), "the previous result");
    const std::set<std::string> before = files();
    // Files may grow to 64 kB; a larger write fails with EFBIG (the signal it raises
    // is ignored, so the program sees the error).
    const Outcome r = tool("-m nearest -o out.ppm f.pgm", "trap '' XFSZ; ulimit -f 64;");
    EXPECT_EQ(r.status, 1) << r.err;
    EXPECT_NE(r.err.find("write failed"), std::string::npos) << r.err;
    EXPECT_EQ(files(), before);
    EXPECT_EQ(slurp(path("out.ppm")), "the previous result");
}

TEST_F(Cli, OneBadFileAmongSeveralFailsAloneAndTheOthersAreWritten) {
    spit(path("a.pgm"), pgm8(16, 12, frame8(16, 12, 11)));
    spit(path("b.pgm"), pgm8(16, 12, frame8(16, 12, 12)).substr(0, 50));
    spit(path("c.pgm"), pgm8(16, 12, frame8(16, 12, 13)));
    const Outcome r = tool("-m nearest -d out a.pgm b.pgm c.pgm");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
    EXPECT_NE(r.err.find("b.pgm: truncated"), std::string::npos) << r.err;
    std::set<std::string> written;
    for (const auto& e : fs::directory_iterator(path("out"))) written.insert(e.path().filename().string());
    EXPECT_EQ(written, (std::set<std::string>{"a.png", "c.png"}));
}

// The quality tool.
TEST(Quality, PsnrFollowsTheMeanSquaredErrorAndLeavesOutTheBorder) {
    Image a{10, 8, 3, 8, std::vector<std::uint8_t>(240, 100), {}};
    Image b = a;
    EXPECT_TRUE(std::isinf(qzrcfa::tools::colour_psnr(a, b, 0)));
    for (auto& v : b.pixels) v = 101;  // every sample off by one: MSE 1
    EXPECT_NEAR(qzrcfa::tools::colour_psnr(a, b, 0), 48.1308, 1e-4);
    b = a;
    b.pixels[0] = 0;  // a corner pixel: outside once a border of 1 is left out
    EXPECT_TRUE(std::isinf(qzrcfa::tools::colour_psnr(a, b, 1)));
    EXPECT_NEAR(qzrcfa::tools::colour_mse(a, b, 0), 100.0 * 100.0 / 240.0, 1e-9);
    EXPECT_TRUE(std::isnan(qzrcfa::tools::colour_psnr(a, b, 5)));  // nothing left
}

class QualityTool : public Cli {};

// Except Laplacian2: its displaced green pass leaves greens of 255 in rows and columns
// 2 and 3, which the red/blue pass of row and column 4 reads.
TEST_F(QualityTool, AUniformPhotographIsRestoredExactlyByEveryMethodButLaplacian2) {
    Image flat{40, 30, 3, 8, {}, {}};
    for (int i = 0; i < 40 * 30; ++i) flat.pixels.insert(flat.pixels.end(), {90, 150, 210});
    qzrcfa::tools::write_png(path("flat.png").string(), flat);
    const Outcome r = run(QZRCFA_QUALITY, "--pattern all flat.png");
    ASSERT_EQ(r.status, 0) << r.err;
    std::istringstream lines(r.out);
    std::string header, line;
    std::getline(lines, header);
    int rows = 0, measured = 0;
    while (std::getline(lines, line)) {
        ++rows;
        ++measured;
        if (line.rfind("laplacian 2", 0) == 0) EXPECT_EQ(line.find("inf"), std::string::npos) << line;
        else EXPECT_NE(line.find("inf"), std::string::npos) << line;
    }
    EXPECT_EQ(rows, 7);
    EXPECT_EQ(measured, 7);
}

TEST_F(QualityTool, MethodsOnARealPhotographScoreInAPlausibleOrder) {
    const Outcome r = run(QZRCFA_QUALITY, quote(std::string(QZRCFA_SAMPLES) + "/chelsea.png"));
    ASSERT_EQ(r.status, 0) << r.err;
    std::map<std::string, double> score;
    std::istringstream lines(r.out);
    std::string line;
    std::getline(lines, line);
    // "METHOD LABEL   PSNR   MEAN", the label padded to 18 columns.
    while (std::getline(lines, line)) {
        std::istringstream fields(line.substr(std::min<std::size_t>(18, line.size())));
        double psnr = 0, mean = 0;
        if (line.size() > 18 && fields >> psnr >> mean) {
            std::string label = line.substr(0, 18);
            label.erase(label.find_last_not_of(' ') + 1);
            score[label] = psnr;
        }
    }
    ASSERT_TRUE(score.count("nearest neighbour")) << r.out;
    for (const auto& [method, psnr] : score) {
        EXPECT_GT(psnr, 20.0) << method;
        EXPECT_LT(psnr, 60.0) << method;
    }
    ASSERT_EQ(score.size(), 7u) << r.out;
    // Interpolating methods beat copying, and gradient-corrected ones beat bilinear.
    for (const char* better : {"bilinear", "edge sensing 1", "laplacian", "smooth hue"})
        EXPECT_GT(score[better], score["nearest neighbour"]) << better;
    EXPECT_GT(score["laplacian"], score["bilinear"]);
}

TEST_F(QualityTool, BadArgumentsAndUnreadableImagesFail) {
    EXPECT_EQ(run(QZRCFA_QUALITY, "").status, 2);
    EXPECT_EQ(run(QZRCFA_QUALITY, "--pattern XYZW a.png").status, 2);
    const Outcome missing = run(QZRCFA_QUALITY, "missing.png");
    EXPECT_EQ(missing.status, 1);
    EXPECT_NE(missing.err.find("missing.png"), std::string::npos);
    qzrcfa::tools::write_png(path("grey.png").string(), Image{8, 8, 1, 8, std::vector<std::uint8_t>(64, 1), {}});
    EXPECT_EQ(run(QZRCFA_QUALITY, "grey.png").status, 1);
}

}  // namespace
