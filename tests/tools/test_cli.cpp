// Drives the built qzrcfa-demosaic and qzrcfa-quality programs. One table holds the
// hostile and careless calls: each runs in a fresh directory under a memory limit (so a
// tool that allocated what a header declares fails), and must give its exit status, its
// one line on standard error, exactly the files it should write and no change to any
// other file. The round trips compare what the tool writes with direct calls of the
// exports.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <random>
#include <span>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "image_io.h"
#include "qzrcfa.h"
#include "qzrcfa.hpp"
#include "quality.h"

namespace {

namespace fs = std::filesystem;
using qzrcfa::tools::Image;

std::string slurp(const fs::path& p) {
    std::ifstream in(p, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void spit(const fs::path& p, const std::string& bytes) {
    fs::create_directories(p.parent_path());
    std::ofstream(p, std::ios::binary) << bytes;
}

std::vector<std::uint8_t> frame8(int w, int h, unsigned seed) {
    std::mt19937 rng(seed);
    std::vector<std::uint8_t> f(std::size_t(w) * std::size_t(h));
    for (auto& v : f) v = std::uint8_t(rng());
    return f;
}

std::vector<std::uint16_t> frame16(int w, int h, unsigned seed, unsigned maxval = 65535) {
    std::mt19937 rng(seed);
    std::vector<std::uint16_t> f(std::size_t(w) * std::size_t(h));
    for (auto& v : f) v = std::uint16_t(rng() % (maxval + 1));
    return f;
}

std::string header(const char* magic, int w, int h, unsigned maxval) {
    return std::string(magic) + "\n# a comment\n" + std::to_string(w) + " " + std::to_string(h) + "\n" + std::to_string(maxval) + "\n";
}

std::string pgm8(int w, int h, const std::vector<std::uint8_t>& s) { return header("P5", w, h, 255) + std::string(s.begin(), s.end()); }

std::string pgm16(int w, int h, const std::vector<std::uint16_t>& s, unsigned maxval = 65535) {
    std::string out = header("P5", w, h, maxval);
    for (std::uint16_t v : s) out += {char(v >> 8), char(v & 0xFF)};
    return out;
}

// A grey PNG from its parts, so the IHDR can declare what the data does not hold.
std::string chunk(const std::string& type, const std::string& data) {
    auto be32 = [](std::uint32_t v) { return std::string{char(v >> 24), char(v >> 16), char(v >> 8), char(v)}; };
    const std::string body = type + data;
    return be32(std::uint32_t(data.size())) + body + be32(std::uint32_t(crc32(0, reinterpret_cast<const Bytef*>(body.data()), uInt(body.size()))));
}

std::string deflated(const std::string& bytes) {
    std::string out(compressBound(uLong(bytes.size())), '\0');
    uLongf size = uLongf(out.size());
    compress(reinterpret_cast<Bytef*>(out.data()), &size, reinterpret_cast<const Bytef*>(bytes.data()), uLong(bytes.size()));
    return out.substr(0, size);
}

// colour: PNG colour type (0 grey, 2 RGB); `extra`: chunks between IHDR and IDAT.
std::string png(std::uint32_t w, std::uint32_t h, int depth, const std::string& rows, char colour = 0, const std::string& extra = "") {
    std::string ihdr;
    for (std::uint32_t v : {w, h}) ihdr += {char(v >> 24), char(v >> 16), char(v >> 8), char(v)};
    ihdr += {char(depth), colour, 0, 0, 0};
    return "\x89PNG\r\n\x1a\n" + chunk("IHDR", ihdr) + extra + chunk("IDAT", deflated(rows)) + chunk("IEND", "");
}

struct Outcome {
    int status;
    std::string out, err;
};

// Every file under a directory, with its contents; with `kinds`, also its permissions,
// and a link or a special file as what it is.
std::map<std::string, std::string> snapshot(const fs::path& dir, bool kinds = false) {
    std::map<std::string, std::string> files;
    for (const auto& e : fs::recursive_directory_iterator(dir)) {
        std::string& f = files[e.path().lexically_relative(dir).string()];
        if (kinds && e.is_symlink()) f = "link to " + fs::read_symlink(e.path()).string();
        else if (e.is_directory()) f = "(directory)";
        else if (kinds && !e.is_regular_file()) f = "(special)";
        else f = slurp(e.path());
        if (kinds && !e.is_symlink()) f += " mode " + std::to_string(unsigned(e.status().permissions()));
    }
    return files;
}

// A fresh directory per test; commands run there through sh, with $T naming
// qzrcfa-demosaic and $Q qzrcfa-quality, under the memory limit.
class Cli : public ::testing::Test {
  protected:
    void SetUp() override {
        dir_ = fs::current_path() / ("cli-" + std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()));
        fs::remove_all(dir_);
        fs::create_directories(dir_);
        ::setenv("T", QZRCFA_DEMOSAIC, 1);
        ::setenv("Q", QZRCFA_QUALITY, 1);
    }

    fs::path path(const std::string& name) const { return dir_ / name; }

    // With kill_when, sends SIGTERM once a file whose name starts with it appears.
    Outcome run(const std::string& command, const std::string& kill_when = "") const {
#ifdef QZRCFA_TOOLS_SANITIZED
        const std::string limit = "export ASAN_OPTIONS=max_allocation_size_mb=100";  // no ulimit -v under ASan
#else
        const std::string limit = "ulimit -v " + std::to_string(102400 + QZRCFA_EMULATOR_KB);
#endif
        const std::string script = "cd '" + dir_.string() + "' && " + limit + " && " + command;
        const std::string out = dir_.string() + ".out", err = dir_.string() + ".err";
        const pid_t pid = ::fork();
        if (pid == 0) {
            ::dup2(::open("/dev/null", O_RDONLY), 0);
            ::dup2(::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644), 1);
            ::dup2(::open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644), 2);
            ::execl("/bin/sh", "sh", "-c", script.c_str(), static_cast<char*>(nullptr));
            ::_exit(127);
        }
        for (int i = 0; !kill_when.empty() && i < 20000; ++i) {
            bool seen = false;
            for (const auto& e : fs::directory_iterator(dir_)) seen |= e.path().filename().string().rfind(kill_when, 0) == 0;
            if (seen && ::kill(pid, SIGTERM) == 0) break;
            std::this_thread::sleep_for(std::chrono::microseconds(500));
        }
        int raw = 0;
        ::waitpid(pid, &raw, 0);
        return {WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw), slurp(out), slurp(err)};
    }

    fs::path dir_;
};

// Setups: files written into the test's directory.
using Setup = std::function<void(const fs::path&)>;
Setup writes(const std::string& name, const std::string& bytes) {
    return [=](const fs::path& d) { spit(d / name, bytes); };
}
const Setup good = writes("f.pgm", pgm8(16, 12, frame8(16, 12, 8)));
const std::string k16k = "P5 15000 15000 255\n";  // 225 MB of samples declared
// An output already there, with a mode or as a link to the file keep.png.
Setup existing(const char* name, fs::perms mode) {
    return [=](const fs::path& d) {
        good(d);
        spit(d / name, "old");
        fs::permissions(d / name, mode);
    };
}
Setup linked(const char* name, const char* to) {
    return [=](const fs::path& d) {
        good(d);
        spit(d / "keep.png", "precious");
        fs::create_directories((d / name).parent_path());
        fs::create_symlink(to, d / name);
    };
}
const Setup link_out = linked("o.png", "keep.png");
// Headers of 12000x12000 (432 MB as RGB) with noise enough for deflate to hold them.
std::string noise(std::size_t n) {
    const auto v = frame8(int(n), 1, 11);
    return {v.begin(), v.end()};
}
const Setup rgb12k = writes("b.png", png(12000, 12000, 8, noise(430'000), 2));
const Setup grey12k = writes("b.png", png(12000, 12000, 8, noise(150'000)));
// 30 zTXt chunks of 7 MB of text each, before a 3000x3000 frame.
const Setup ztxt = [](const fs::path& d) {
    const std::string text = chunk("zTXt", std::string("Comment\0\0", 9) + deflated(std::string(7'000'000, 'x')));
    std::string texts;
    for (int i = 0; i < 30; ++i) texts += text;
    spit(d / "t.png", png(3000, 3000, 8, std::string(3001 * 3000, '\0'), 0, texts));
};

// A call, what is set up for it, its exit status, a fragment of its one line on
// standard error ("" for none), and the files it must create (space separated);
// every file set up must be left unchanged.
struct Case {
    const char* name;
    Setup setup;
    const char* command;
    int status;
    const char* message;
    const char* creates = "";
    const char* kill_when = "";
};

const Case kCases[] = {
    // Frames larger than the limit or than their file, refused before allocating.
    {"46341x46341", writes("b.pgm", "P5\n46341 46341\n255\n"), "$T -o o.png b.pgm", 1,
     "b.pgm: the header declares 46341x46341, 2147488281 pixels, above the limit of 256000000"},
    {"limit raised: the library's size check", writes("b.pgm", "P5\n46341 46341\n255\n"), "$T --max-megapixels 3000 -o o.png b.pgm", 1,
     "b.pgm: frame size 46341x46341 is too large"},
    {"225 MB declared, none there", writes("b.pgm", k16k), "$T -m nearest -f gray -o o.png b.pgm", 1,
     "truncated: the header declares 15000x15000 with maxval 255, 225000000 bytes of samples; the file holds 0"},
    {"... from a pipe", writes("b.pgm", k16k + std::string(4096, 'x')), "cat b.pgm | $T -m nearest -f gray -o o.png -", 1,
     "standard input: truncated: the header declares 15000x15000 with maxval 255, 225000000 bytes of samples; the input ends after 4096"},
    {"16-bit, 288 MB declared", writes("b.pgm", "P5 12000 12000 65535\n"), "$T -m nearest -o o.png b.pgm", 1,
     "288000000 bytes of samples; the file holds 0"},
    {"raw frame above the limit", writes("r.raw", std::string(64, 'x')), "$T --width 40000 --height 40000 -o o.png r.raw", 1,
     "r.raw: --width and --height ask for 40000x40000"},
    {"raw frame larger than its file", writes("r.raw", std::string(64, 'x')), "$T --width 15000 --height 15000 -m nearest -f gray -o o.png r.raw",
     1, "truncated: a 15000x15000 8-bit frame is 225000000 bytes, the file has 64"},
    {"PNG above the limit", writes("b.png", png(30000, 30000, 8, "")), "$T -o o.png b.png", 1,
     "b.png: IHDR declares 30000x30000, 900000000 pixels, above the limit"},
    {"PNG of 10^12 16-bit pixels", writes("b.png", png(1000000, 1000000, 16, "")), "$T -o o.png b.png", 1,
     "IHDR declares 1000000x1000000, 1000000000000 pixels"},
    {"PNG wider than the limit", writes("b.png", png(300000000, 1, 8, "")), "$T -o o.png b.png", 1, "IHDR width is above the pixel limit"},
    {"PNG larger than deflate can hold", writes("b.png", png(15000, 15000, 8, std::string(3 * 15001, '\0'))),
     "$T -m nearest -f gray -o o.png b.png", 1, "IHDR declares 15000x15000, 225015000 bytes of image data; the"},
    {"... from a pipe", writes("b.png", png(15000, 15000, 8, std::string(3 * 15001, '\0'))), "cat b.png | $T -m nearest -f gray -o o.png -",
     1, "truncated: the compressed image data ends before the last row"},
    {"PNG cut short", writes("b.png", png(64, 64, 8, std::string(64 * 65, '\7')).substr(0, 60)), "$T -o o.png b.png", 1,
     "b.png: truncated: the PNG data ends after"},
    {"PNG with a bad CRC", writes("b.png", png(8, 8, 8, std::string(8 * 9, '\7')).replace(30, 1, "?")), "$T -o o.png b.png", 1,
     "corrupt PNG: chunk IHDR fails its CRC check"},
    // Malformed or inconsistent files.
    {"truncated PGM", writes("f.pgm", pgm8(16, 12, frame8(16, 12, 9)).substr(0, 100)), "$T -o o.png f.pgm", 1,
     "truncated: the header declares 16x12 with maxval 255, 192 bytes of samples; the file holds 75"},
    {"malformed PGM height", writes("f.pgm", "P5\n16 x\n255\n"), "$T -o o.png f.pgm", 1,
     "header field height: expected a decimal number, found 'x'"},
    {"PGM maxval too large", writes("f.pgm", "P5 16 12 65536\n"), "$T -o o.png f.pgm", 1, "header field maxval: above 65535"},
    {"sample above maxval", writes("f.pgm", header("P5", 2, 2, 1023) + std::string("\0\1\4\0\0\0\0\0", 8)), "$T -m nearest -o o.png f.pgm", 1,
     "sample 1024 at x 1, y 0 is above the header's maxval 1023"},
    {"raw file too long", writes("f.raw", std::string(16 * 12 + 1, 'x')), "$T --width 16 --height 12 -o o.png f.raw", 1,
     "wrong size: a 16x12 8-bit frame is 192 bytes, the file has 193"},
    {"unreadable path", good, "$T -o o.png missing.pgm", 1, "missing.pgm: cannot open"},
    {"directory as input", [](const fs::path& d) { fs::create_directory(d / "sub"); }, "$T -o o.png sub", 1, "is a directory"},
    {"empty input", good, "$T -o o.png - </dev/null", 1, "standard input: empty file"},
    {"not an image", writes("f.pgm", "hello, world\n"), "$T -o o.png f.pgm", 1, "unknown file type"},
    {"colour image as a raw frame", writes("c.ppm", header("P6", 2, 2, 255) + std::string(12, 'x')), "$T -o o.png c.ppm", 1, "3 channels"},
    // Requests the library refuses, refused before any buffer is allocated.
    {"frame below the minimum", writes("f.pgm", pgm8(1, 5, frame8(1, 5, 1))), "$T -m nearest -o o.png f.pgm", 1, "minimum"},
    {"--all: one method refuses, no file", writes("f.pgm", pgm8(3, 3, frame8(3, 3, 1))), "$T --all -d . f.pgm", 1, "4x4 minimum of laplacian"},
    {"combination without an export", good, "$T -m edge2 -p BGGR -o o.png f.pgm", 1, "edge2 has RGGB top-down and RGGB bottom-up"},
    {"16-bit frame, --rule member, no member", writes("f.pgm", pgm16(16, 12, frame16(16, 12, 2))), "$T --rule member -m bilinear -o o.png f.pgm", 1,
     "f.pgm: no member of bilinear takes 16-bit samples"},
    {"--bits with an 8-bit frame", good, "$T --bits 12 -o o.png f.pgm", 1, "f.pgm: --bits 12 is for 16-bit samples; this frame has 8-bit samples"},
    {"--bits against the maxval", writes("f.pgm", pgm16(16, 12, frame16(16, 12, 2, 1023), 1023)), "$T --bits 12 -o o.png f.pgm", 1,
     "f.pgm: --bits 12 disagrees with the header's maxval 1023, 10 significant bits"},
    {"--wb auto, every sample saturated", writes("f.pgm", pgm8(16, 12, std::vector<std::uint8_t>(192, 255))), "$T --wb auto -o o.png f.pgm", 1,
     "f.pgm: automatic white balance found no unsaturated sample of some colour"},
    {"black level above the samples' bits", good, "$T --black 256 -o o.png f.pgm", 1, "f.pgm: black level 256 is outside 0..255 of 8-bit samples"},
    // Packed rows: every layout's rows of an odd width, read to the byte, and refused a byte short.
    {"raw10 rows", writes("f.raw", std::string(3 * 50, '\0')), "$T --packing RAW10 --width 37 --height 3 -o o.png f.raw", 0, "", "o.png"},
    {"raw12 rows", writes("f.raw", std::string(3 * 57, '\0')), "$T --packing csi2-raw12 --width 37 --height 3 -o o.png f.raw", 0, "", "o.png"},
    {"10p rows", writes("f.raw", std::string(3 * 47, '\0')), "$T --packing mono10p --width 37 --height 3 -o o.png f.raw", 0, "", "o.png"},
    {"12p rows", writes("f.raw", std::string(3 * 56, '\0')), "$T --packing 12P --width 37 --height 3 -o o.png f.raw", 0, "", "o.png"},
    {"12packed rows", writes("f.raw", std::string(3 * 57, '\0')), "$T --packing 12packed --width 37 --height 3 -o o.png f.raw", 0, "", "o.png"},
    {"padded rows, the last one short", writes("f.raw", std::string(2 * 64 + 57, '\0')), "$T --packing raw12 --stride 64 --width 37 --height 3 -o o.png f.raw",
     0, "", "o.png"},
    {"packed file shorter than its rows", writes("f.raw", std::string(2 * 64 + 56, '\0')),
     "$T --packing raw12 --stride 64 --width 37 --height 3 -o o.png f.raw", 1,
     "f.raw: truncated: a 37x3 frame of raw12 rows 64 bytes apart needs at least 185 bytes, the file has 184"},
    {"packed file longer than its rows", writes("f.raw", std::string(3 * 64 + 1, '\0')),
     "$T --packing raw12 --stride 64 --width 37 --height 3 -o o.png f.raw", 1, "wrong size: a 37x3 frame of raw12 rows 64 bytes apart takes at most 192 bytes"},
    {"packed frame larger than its file", writes("f.raw", std::string(64, 'x')), "$T --packing raw10 --width 15000 --height 15000 -o o.png f.raw", 1,
     "truncated: a 15000x15000 frame of raw10 rows is 281250000 bytes, the file has 64"},
    {"--stride below the packed row", writes("f.raw", std::string(60, 'x')), "$T --packing raw12 --stride 14 --width 9 --height 4 -o o.png f.raw", 2,
     "--stride 14 is below the 15 bytes of a 9-pixel raw12 row"},
    {"unknown packing", writes("f.raw", std::string(60, 'x')), "$T --packing raw14 --width 9 --height 4 -o o.png f.raw", 2,
     "unknown --packing value 'raw14' (none, raw10, raw12, 10p, 12p or 12packed)"},
    {"--bits against the packing", writes("f.raw", std::string(60, 'x')), "$T --packing raw12 --bits 10 --width 9 --height 4 -o o.png f.raw", 2,
     "--bits 10 with --packing raw12, whose samples have 12 bits"},
    {"--wb gain of 0", good, "$T --wb 0,1,1 -o o.png f.pgm", 2, "--wb takes three gains (R,G,B) above 0 and at most 64, or auto, not '0,1,1'"},
    {"--wb gain of 65", good, "$T --wb 1,65,1 -o o.png f.pgm", 2, "not '1,65,1'"},
    {"--gamma with another curve", good, "$T --gamma 2.2 --curve srgb -o o.png f.pgm", 2, "--gamma goes with --curve gamma"},
    {"--flip against --order", good, "$T --flip --order top-down -o o.png f.pgm", 2, "--flip and --order top-down ask for two row orders"},
    {"16-bit frame to BMP", writes("f.pgm", pgm16(16, 12, frame16(16, 12, 2))), "$T -m nearest -o o.bmp f.pgm", 1, "BMP holds 8-bit samples"},
    {"bgra to PPM", good, "$T -m nearest -f bgra -o o.ppm f.pgm", 1, "fourth channel"},
    {"colour to PGM", good, "$T -m nearest -o o.pgm f.pgm", 1, "use .ppm"},
    {"unknown output type", good, "$T -m nearest -o o.jpg f.pgm", 2, "o.jpg: unknown extension .jpg; the extension gives the file type"},
    {"output in a missing directory", good, "$T -m nearest -o nowhere/o.png f.pgm", 1, "cannot create"},
    {"one bad input among three",
     [](const fs::path& d) {
         for (const char* n : {"a", "b", "c"}) spit(d / (std::string(n) + ".pgm"), pgm8(16, 12, frame8(16, 12, 8)).substr(0, *n == 'b' ? 50 : 999));
     },
     "$T -m nearest -d out a.pgm b.pgm c.pgm", 1, "b.pgm: truncated", "out out/a.png out/c.png"},
    // The user's own files.
    {"output onto the input", good, "$T -f gray -m nearest -o f.pgm f.pgm", 2, "f.pgm, the output of f.pgm, would replace the input f.pgm"},
    {"output onto a hard link of the input", [](const fs::path& d) { good(d); fs::create_hard_link(d / "f.pgm", d / "g.pgm"); },
     "$T -f gray -m nearest -o g.pgm f.pgm", 2, "would replace the input f.pgm"},
    {"output onto standard input's file", good, "$T -f gray -m nearest -o f.pgm - <f.pgm", 2, "would replace the input standard input"},
    {"two inputs, one stem", [](const fs::path& d) { good(d / "a"); good(d / "b"); }, "$T -d out a/f.pgm b/f.pgm", 2,
     "out/f.png would be both the output of a/f.pgm and the output of b/f.pgm"},
    {"montage onto the input", good, "$T --all -d out --montage f.pgm f.pgm", 2, "the montage of f.pgm, would replace the input"},
    {"montage onto a method's output", good, "$T --all -d out --montage out/f-edge1.png f.pgm", 2,
     "out/f-edge1.png would be both the edge1 output of f.pgm and the montage of f.pgm"},
    {"-o naming a directory", [](const fs::path& d) { good(d); fs::create_directory(d / "out"); }, "$T -o out f.pgm", 2,
     "out is a directory; -o names a file"},
    {"killed while writing", writes("big.pgm", pgm8(2000, 1500, frame8(2000, 1500, 3))), "exec $T -m nearest -o big.png big.pgm",
     128 + SIGTERM, "", "", ".big.png.tmp-"},
    {"write fails halfway", [](const fs::path& d) { spit(d / "f.pgm", pgm8(256, 256, frame8(256, 256, 10))); spit(d / "o.ppm", "old"); },
     "trap '' XFSZ; ulimit -f 64; $T -m nearest -o o.ppm f.pgm", 1, "o.ppm: write failed: File too large"},
    // The command line.
    {"standard input's output is named stdin", good, "$T -d out - <f.pgm", 0, "", "out out/stdin.png"},
    {"--help is the manual", good, "$T --help | grep -q '^SYNOPSIS'", 0, ""},
    {"--time and --verbose", good,
     "$T --time -v --repeat 3 --threads 1 -m nearest -d out f.pgm | tr '\\n' '|' | grep -Eq '^f nearest: [0-9]+\\.[0-9]{3} ms per frame \\(median of 3\\), [0-9.]+ MP/s\\|wrote out/f.png\\|$'",
     0, "", "out out/f.png"},
    {"--time: as many calls as last 0.2 s", good, "$T --time -m nearest -o o.png f.pgm | grep -Eq '^f nearest: [0-9.]+ ms per frame \\(median of [1-9][0-9]+\\), [0-9.]+ MP/s$'",
     0, "", "o.png"},
    {"--time: no speed-up where no thread ran", good, "$T --time --threads 3 -m nearest -o o.png f.pgm | grep -Eq 'MP/s$'", 0, "", "o.png"},
    {"--time: the speed-up where threads ran", writes("f.pgm", pgm8(1024, 512, frame8(1024, 512, 1))),
     "$T --time --repeat 1 --threads 3 -m nearest -o o.png f.pgm | grep -Eq '^f nearest: [0-9.]+ ms per frame \\(median of 1\\), [0-9.]+ MP/s, [0-9]+\\.[0-9]{2}x one thread.s speed \\(2 threads\\)$'",
     0, "", "o.png"},
    {"--repeat without --time", good, "$T --repeat 3 -o o.png f.pgm", 2, "--repeat goes with --time"},
    {"--threads negative", good, "$T --threads -1 -o o.png f.pgm", 2, "--threads: thread count -1 is negative"},
    {"--threads above the limit", good, "$T --threads 1025 -o o.png f.pgm", 2, "thread count 1025 is above the limit of 1024"},
    {"unknown --method value", good, "$T -m fast -o o.png f.pgm", 2,
     "unknown -m value 'fast' (nearest, bilinear, edge1, edge2, laplacian, laplacian2, smoothhue or gbri)"},
    {"unknown --format value", good, "$T -f rgb -o o.png f.pgm", 2, "unknown -f value 'rgb' (bgr24, bgra32 or grey)"},
    {"unsupported --depth", good, "$T --width 16 --height 12 --depth 12 -o o.png f.pgm", 2, "unknown --depth value '12'"},
    {"--width without --height", good, "$T --width 16 -o o.png f.pgm", 2, "both --width and --height"},
    {"bad --max-megapixels", good, "$T --max-megapixels 0 -o o.png f.pgm", 2, "--max-megapixels takes"},
    {"option without its value", good, "$T f.pgm -o", 2, "-o needs a value"},
    {"no output named", good, "$T f.pgm", 2, "-o FILE or -d DIRECTORY"},
    {"-o with --all", good, "$T --all -o o.png f.pgm", 2, "--all writes a file per method and a montage: name a directory with -d"},
    {"--option=value", good, "$T --threads=3 --method=nearest --output=o.png f.pgm", 0, "", "o.png"},
    {"--flag=value", good, "$T --flip=1 -o o.png f.pgm", 2, "--flip takes no value"},
    {"PGM comments glued to numbers", writes("f.pgm", "P5\n16#w\n12 # h\n255#maxval\n" + std::string(192, 'x')), "$T -m nearest -o o.png f.pgm", 0, "", "o.png"},
    // Outputs checked before any input is read (missing.pgm is never opened) and left alone.
    {"-o without an image type", good, "$T -o /dev/null missing.pgm", 2, "/dev/null: no extension; the extension gives the file type: .png, .ppm, .pgm or .bmp"},
    {"-o onto a pipe", [](const fs::path& d) { good(d); ::mkfifo((d / "o.png").c_str(), 0644); }, "$T --force -o o.png missing.pgm", 2,
     "o.png is not a regular file"},
    {"-d naming a file", good, "$T -d f.pgm f.pgm", 2, "f.pgm is not a directory"},
    {"-d -", good, "$T -d - f.pgm", 2, "-d takes a directory, not -"},
    {"output a symbolic link", link_out, "$T -m nearest -o o.png f.pgm", 2, "o.png is a symbolic link to keep.png; --force"},
    {"... in -d", linked("out/f.png", "../keep.png"), "$T -m nearest -d out f.pgm", 2, "out/f.png is a symbolic link to ../keep.png"},
    {"... --force replaces the link alone", link_out, "$T --force -m nearest -o o.png f.pgm", 0, "", "o.png"},
    {"output read-only", existing("o.png", fs::perms::owner_read | fs::perms::group_read), "$T -m nearest -o o.png f.pgm", 2,
     "o.png is read-only; --force replaces it"},
    {"... --force replaces it, still read-only", existing("o.png", fs::perms::owner_read | fs::perms::group_read),
     "$T --force -m nearest -o o.png f.pgm && stat -c %a o.png | grep -qx 440", 0, "", "o.png"},
    {"a replaced file keeps its mode", existing("o.ppm", fs::perms::owner_read | fs::perms::owner_write),
     "$T -m nearest -o o.ppm f.pgm && stat -c %a o.ppm | grep -qx 600", 0, "", "o.ppm"},
    // Decompression bombs.
    {"colour PNG as a raw frame, from its header", rgb12k, "$T -o o.png b.png", 1, "b.png: has 3 channels"},
    {"210 MB of zTXt skipped", ztxt, "$T -m nearest -f gray -o o.png t.png", 0, "", "o.png"},
    // The quality tool.
    {"quality: too large, from the header", rgb12k, "$Q b.png", 1, "b.png: frame size 12000x12000 is too large"},
    {"quality: grey, from the header", grey12k, "$Q b.png", 1, "b.png: not a colour image"},
    {"quality: --max-megapixels", rgb12k, "$Q --depth 16 --max-megapixels=100 b.png", 1,
     "b.png: IHDR declares 12000x12000, 144000000 pixels, above the limit of 100000000 (--max-megapixels raises it)"},
    {"quality: 1x1", writes("c.ppm", header("P6", 1, 1, 255) + "abc"), "$Q c.ppm", 1,
     "c.ppm: 1x1 is too small: the smallest image it measures with --border 4 is 9x9"},
    {"quality: 8x8, nothing inside the border", writes("c.ppm", header("P6", 8, 8, 255) + std::string(192, 'x')), "$Q c.ppm", 1,
     "c.ppm: 8x8 is too small: the smallest image it measures with --border 4 is 9x9"},
};

TEST_F(Cli, HostileAndCarelessCallsFailCleanlyAndLeaveEveryFileAlone) {
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        fs::remove_all(dir_);
        fs::create_directories(dir_);
        c.setup(dir_);
        std::map<std::string, std::string> expected = snapshot(dir_, true);
        const Outcome r = run(c.command, c.kill_when);
        EXPECT_EQ(r.status, c.status) << r.err;
        if (*c.message) {
            const char* tool = std::string(c.command).rfind("$Q", 0) == 0 ? "qzrcfa-quality: " : "qzrcfa-demosaic: ";
            EXPECT_EQ(r.err.rfind(tool, 0), 0u) << r.err;
            EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
            EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
        } else {
            EXPECT_EQ(r.err, "");
        }
        std::map<std::string, std::string> after = snapshot(dir_, true);
        std::istringstream created(c.creates);
        for (std::string f; created >> f;) {
            EXPECT_EQ(after.count(f), 1u) << f << " was not written";
            EXPECT_NE(after[f], expected[f]) << f << " was not replaced";
            after.erase(f);
            expected.erase(f);
        }
        EXPECT_EQ(after, expected) << "files other than those named changed or appeared";
    }
}

// Parses a binary PPM/PGM: width, height, maxval and samples.
struct Pnm {
    int width = 0, height = 0, maxval = 0;
    std::vector<unsigned> samples;
};

Pnm parse_pnm(const std::string& bytes) {
    Pnm p;
    std::istringstream in(bytes);
    std::string magic;
    in >> magic >> p.width >> p.height >> p.maxval;
    in.get();
    for (int v = in.get(); in; v = in.get()) p.samples.push_back(p.maxval > 255 ? unsigned(v) << 8 | unsigned(in.get()) : unsigned(v));
    return p;
}

// The image a person sees: rows top to bottom, R, G, B (and the fourth element), from
// an interface buffer of `stride` elements per pixel.
template <class T>
std::vector<unsigned> picture(const std::vector<T>& buffer, int w, int h, int stride, bool bottom_up, int channels = 3) {
    std::vector<unsigned> out;
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            const T* px = &buffer[(std::size_t(bottom_up ? h - 1 - y : y) * std::size_t(w) + std::size_t(x)) * std::size_t(stride)];
            if (channels == 1) out.push_back(px[0]);
            else out.insert(out.end(), {px[2], px[1], px[0]});
            if (channels == 4) out.push_back(px[3]);
        }
    }
    return out;
}

TEST_F(Cli, EightBitFramesFromEveryInputGiveTheExportsOutput) {
    const int w = 37, h = 30;
    const auto raw = frame8(w, h, 1);
    spit(path("f.pgm"), pgm8(w, h, raw));
    spit(path("f.raw"), std::string(raw.begin(), raw.end()));
    qzrcfa::tools::write_png(path("f.png").string(), Image{w, h, 1, 8, raw, {}});
    std::vector<std::uint8_t> top(std::size_t(w * h * 4), 0xFF), bottom(std::size_t(w * h * 3)), copy = raw;
    QZRCFA_NearestNeighbor_GRBG(copy.data(), w, h, top.data(), 24);
    QZRCFA_NearestNeighbor_GRBG_Flip(copy.data(), w, h, bottom.data(), 24);
    // Files, pipes (the type found by peeking at them) and standard output.
    for (const std::string input : {"$T f.pgm", "$T f.png", "$T --width 37 --height 30 f.raw", "cat f.png | $T -",
                                    "cat f.pgm | $T /dev/stdin", "cat f.raw | $T --width 37 --height 30 -"}) {
        for (const std::string output : {" -o o.ppm", " -o - >o.ppm"}) {
            SCOPED_TRACE(input + output);
            for (const bool flip : {false, true}) {
                const Outcome r = run(input + " -m nearest -p GRBG" + output + (flip ? " --flip" : ""));
                ASSERT_EQ(r.status, 0) << r.err;
                const Pnm p = parse_pnm(slurp(path("o.ppm")));
                EXPECT_EQ(std::pair(p.width, p.height), std::pair(w, h));
                EXPECT_EQ(p.maxval, 255);
                // Upright whichever member computed it.
                EXPECT_EQ(p.samples, flip ? picture(bottom, w, h, 3, true) : picture(top, w, h, 3, false));
            }
        }
    }
    // bgra: the fourth element becomes PNG alpha; the tool starts from an opaque buffer.
    std::fill(top.begin(), top.end(), 0xFF);
    QZRCFA_NearestNeighbor_GRBG(copy.data(), w, h, top.data(), 32);
    ASSERT_EQ(run("$T -m nearest -p GRBG -f bgra -o o.png f.pgm").status, 0);
    const Image png = qzrcfa::tools::read_image(path("o.png").string());
    EXPECT_EQ(png.channels, 4);
    EXPECT_EQ(std::vector<unsigned>(png.pixels.begin(), png.pixels.end()), picture(top, w, h, 4, false, 4));
}

// 16-bit frames give 16-bit images; a maxval below 65535 is kept in PGM/PPM and scaled
// to the full range, with sBIT, in PNG.
TEST_F(Cli, SixteenBitFramesKeepTheirRange) {
    const int w = 21, h = 16;
    for (const unsigned maxval : {65535u, 1023u}) {
        SCOPED_TRACE(maxval);
        const auto raw = frame16(w, h, 3, maxval);
        spit(path("f.pgm"), pgm16(w, h, raw, maxval));
        std::vector<std::uint16_t> colour(std::size_t(w * h * 3)), grey(std::size_t(w * h + 2)), copy = raw;
        QZRCFA_NearestNeighbor_BGGR_16Bits(copy.data(), w, h, colour.data(), 24);
        QZRCFA_NearestNeighbor_BGGR_Gray_Flip_16Bits(copy.data(), w, h, grey.data());
        grey.resize(std::size_t(w * h));
        // The member, which takes the samples as they are (the default for fewer bits is the general rule).
        ASSERT_EQ(run("$T -m nearest -p BGGR --rule member -o o.ppm f.pgm && $T -m nearest -p BGGR --rule member -o o.png f.pgm").status, 0);
        const Pnm p = parse_pnm(slurp(path("o.ppm")));
        EXPECT_EQ(p.maxval, int(maxval));
        EXPECT_EQ(p.samples, picture(colour, w, h, 3, false));
        std::vector<unsigned> scaled;
        for (unsigned v : picture(colour, w, h, 3, false)) scaled.push_back((v * 65535 + maxval / 2) / maxval);
        const Image png = qzrcfa::tools::read_image(path("o.png").string(), true);
        EXPECT_EQ(std::vector<unsigned>(png.wide.begin(), png.wide.end()), scaled);
        EXPECT_EQ(slurp(path("o.png")).find(std::string("sBIT\x0a\x0a\x0a", 7)) != std::string::npos, maxval == 1023);

        spit(path("f.raw"), std::string(reinterpret_cast<const char*>(raw.data()), raw.size() * 2));  // little-endian host
        ASSERT_EQ(run("$T -m nearest -p BGGR -f gray --flip -o g.pgm --width 21 --height 16 --depth 16 f.raw").status, 0);
        EXPECT_EQ(parse_pnm(slurp(path("g.pgm"))).samples, picture(grey, w, h, 1, true, 1));
    }
}

// Raw12 rows as the CSI-2 layout has them: per two samples, their bits 11..4, then both
// low nibbles (the first's in bits 3..0); an odd row ends with a whole group. Rows are
// `stride` bytes apart, padded with bytes the reader must skip; the last is not padded.
std::string raw12(const std::vector<std::uint16_t>& s, int w, int h, std::size_t stride) {
    std::string out;
    for (int y = 0; y < h; ++y) {
        std::string row;
        for (int x = 0; x < w; x += 2) {
            const unsigned a = s[std::size_t(y * w + x)], b = x + 1 < w ? s[std::size_t(y * w + x + 1)] : 0;
            row += {char(a >> 4), char(b >> 4), char((a & 15) | (b & 15) << 4)};
        }
        if (y + 1 < h) row.resize(stride, '\x5a');
        out += row;
    }
    return out;
}

// The tool against the checked interface on the same samples: a 12-bit frame as a PGM
// (maxval 4095), as 16-bit raw and as raw12 rows, padded or not, and an 8-bit frame.
// Each call's PPM or PGM holds the elements of one qzrcfa::demosaic call with the
// options its command line names, and -v prints the white-balance gains it used.
TEST_F(Cli, CameraFramesGiveTheCheckedInterfacesElements) {
    using qzrcfa::Method, qzrcfa::Pattern, qzrcfa::RowOrder, qzrcfa::Format, qzrcfa::Rule;
    const int w = 37, h = 30;
    const auto s12 = frame16(w, h, 6, 4095);
    const auto s8 = frame8(w, h, 7);
    spit(path("f.pgm"), pgm16(w, h, s12, 4095));
    spit(path("f16.raw"), std::string(reinterpret_cast<const char*>(s12.data()), s12.size() * 2));  // little-endian host
    spit(path("f.raw12"), raw12(s12, w, h, 57));
    spit(path("pad.raw12"), raw12(s12, w, h, 64));
    spit(path("g.pgm"), pgm8(w, h, s8));
    const qzrcfa::Picture balance{.black = {64, 60, 70, 66}, .gains = {1.5f, 1, 2.25f}};
    const qzrcfa::Picture camera{.auto_white_balance = true, .matrix = {1.6f, -0.4f, -0.2f, -0.3f, 1.5f, -0.2f, 0, -0.5f, 1.5f},
                                 .curve = qzrcfa::Curve::Srgb};
    const qzrcfa::Options gbrg{.method = Method::EdgeSensing1, .pattern = Pattern::GBRG};
    struct Call {
        const char* args;
        qzrcfa::Options o;
        int output_depth;    // of the elements
        bool eight = false;  // the 8-bit frame g.pgm, else the 12-bit samples
    };
    const Call calls[] = {
        {"-m smoothhue f.pgm", {.method = Method::SmoothHue}, 16},  // no 16-bit member
        {"-m laplacian --output-depth 8 f.pgm", {.method = Method::Laplacian}, 8},
        {"--width 37 --height 30 --depth 16 --bits 12 -m edge1 -p GBRG f16.raw", gbrg, 16},
        {"--packing raw12 --width 37 --height 30 -m edge1 -p GBRG f.raw12", gbrg, 16},
        {"--packing raw12 --stride 64 --width 37 --height 30 -m edge1 -p GBRG pad.raw12", gbrg, 16},
        {"--black 64,60,70,66 --wb 1.5,1,2.25 -v -m bilinear --flip f.pgm", {.method = Method::Bilinear, .order = RowOrder::BottomUp, .picture = balance}, 16},
        {"--wb auto -v --matrix 1.6,-0.4,-0.2,-0.3,1.5,-0.2,0,-0.5,1.5 --curve srgb --output-depth 8 -m laplacian f.pgm",
         {.method = Method::Laplacian, .picture = camera}, 8},
        {"--rule general -m edge2 -p GBRG g.pgm", {.method = Method::EdgeSensing2, .pattern = Pattern::GBRG, .rule = Rule::General}, 8, true},
        {"-m Edge-Sensing-1 -p rggb --order UP g.pgm", {.method = Method::EdgeSensing1, .order = RowOrder::BottomUp}, 8, true},
        {"-m NEAREST -p grbg -f gray g.pgm", {.method = Method::NearestNeighbor, .pattern = Pattern::GRBG, .format = Format::Grey}, 8, true},
    };
    for (const Call& c : calls) {
        SCOPED_TRACE(c.args);
        const int channels = c.o.format == Format::Grey ? 1 : 3;
        const std::string out = channels == 1 ? "o.pgm" : "o.ppm";
        const Outcome r = run("$T -o " + out + " " + c.args);
        ASSERT_EQ(r.status, 0) << r.err;
        const qzrcfa::RawFrame raw = c.eight ? qzrcfa::RawFrame(std::span<const std::uint8_t>(s8), w, h) : qzrcfa::RawFrame(s12.data(), s12.size(), w, h, 0, 12);
        const bool up = c.o.order == RowOrder::BottomUp;
        std::vector<std::uint8_t> narrow(std::size_t(w * h * channels));
        std::vector<std::uint16_t> wide(narrow.size());
        const qzrcfa::Result done = c.output_depth == 8 ? qzrcfa::demosaic(raw, qzrcfa::OutputImage(std::span(narrow)), c.o)
                                                        : qzrcfa::demosaic(raw, qzrcfa::OutputImage(std::span(wide)), c.o);
        ASSERT_TRUE(done) << done.message();
        const Pnm p = parse_pnm(slurp(path(out)));
        EXPECT_EQ(p.maxval, c.output_depth == 8 ? 255 : 4095);
        EXPECT_EQ(p.samples, c.output_depth == 8 ? picture(narrow, w, h, channels, up, channels) : picture(wide, w, h, channels, up, channels));
        if (std::string(c.args).find("--wb") != std::string::npos) {
            char gains[128];
            std::snprintf(gains, sizeof gains, "f white balance: --wb %.6g,%.6g,%.6g\n", double(done.gains_used()[0]), double(done.gains_used()[1]),
                          double(done.gains_used()[2]));
            EXPECT_NE(r.out.find(gains), std::string::npos) << r.out;
        }
    }
}

// A BMP holds the bottom-up member's buffer as it lies, rows padded to 4 bytes;
// Laplacian2, which has no bottom-up member, makes a top-down BMP.
TEST_F(Cli, BmpIsWrittenStraightFromTheBuffer) {
    const int w = 37, h = 12;  // 111 bytes a row at 24 bits: one byte of padding
    const auto raw = frame8(w, h, 4);
    spit(path("f.pgm"), pgm8(w, h, raw));
    struct Case {
        const char* args;
        int bytes_per_pixel;
        bool bottom_up;
        int (*fn)(unsigned char*, int, int, unsigned char*, unsigned short);
    };
    for (const Case& c : {Case{"-m nearest -p GBRG", 3, true, QZRCFA_NearestNeighbor_GBRG_Flip},
                          Case{"-m nearest -p BGGR -f bgra --flip", 4, true, QZRCFA_NearestNeighbor_BGGR_Flip},
                          Case{"-m laplacian2", 3, false, QZRCFA_Laplacian2_RGGB}}) {
        SCOPED_TRACE(c.args);
        ASSERT_EQ(run("$T -o o.bmp f.pgm " + std::string(c.args)).status, 0);
        const std::string b = slurp(path("o.bmp"));
        std::vector<std::uint8_t> expected(std::size_t(w * h * c.bytes_per_pixel), 0xFF), copy = raw;
        c.fn(copy.data(), w, h, expected.data(), std::uint16_t(c.bytes_per_pixel * 8));
        const std::size_t row = std::size_t(w * c.bytes_per_pixel), padded = (row + 3) / 4 * 4;
        std::string rows;
        for (int y = 0; y < h; ++y)
            rows += std::string(expected.begin() + std::ptrdiff_t(std::size_t(y) * row), expected.begin() + std::ptrdiff_t(std::size_t(y + 1) * row)) +
                    std::string(padded - row, '\0');
        const std::int32_t height = std::int32_t(std::uint8_t(b.at(22)) | std::uint8_t(b[23]) << 8 | std::uint8_t(b[24]) << 16 | std::uint8_t(b[25]) << 24);
        EXPECT_EQ(height, c.bottom_up ? h : -h);
        EXPECT_EQ(b.substr(b.size() - rows.size()), rows);
    }
}

TEST_F(Cli, AllWritesEveryMethodAndALabelledMontage) {
    const int w = 64, h = 48;
    spit(path("frame.pgm"), pgm8(w, h, frame8(w, h, 5)));
    ASSERT_EQ(run("$T --all -d out frame.pgm").status, 0);
    std::map<std::string, std::string> expected;
    for (const char* m : {"nearest", "bilinear", "edge1", "edge2", "laplacian", "laplacian2", "smoothhue", "gbri"}) {
        ASSERT_EQ(run(std::string("$T -m ") + m + " -o " + m + ".png frame.pgm").status, 0) << m;
        expected[std::string("frame-") + m + ".png"] = slurp(path(std::string(m) + ".png"));
    }
    const Image montage = qzrcfa::tools::read_image((path("out") / "frame-montage.png").string());
    expected["frame-montage.png"] = slurp(path("out") / "frame-montage.png");
    EXPECT_EQ(snapshot(path("out")), expected) << "each file of --all is the single-method result";
    // The raw view and one tile per method (nine), four to a row, each of the 48-pixel
    // crop enlarged to 240 pixels.
    EXPECT_EQ(montage.width, 10 + 4 * (240 + 10));
    EXPECT_EQ(montage.height, 10 + 3 * (14 + 6 + 240 + 10));
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

// Every method restores a uniform photograph exactly, except Laplacian2: its displaced
// green pass leaves greens of 255 in rows and columns 2 and 3.
TEST_F(Cli, QualityOfAUniformPhotographIsInfiniteForEveryMethodButLaplacian2) {
    Image flat{40, 30, 3, 8, {}, {}};
    for (int i = 0; i < 40 * 30; ++i) flat.pixels.insert(flat.pixels.end(), {90, 150, 210});
    qzrcfa::tools::write_png(path("flat.png").string(), flat);
    const Outcome r = run("$Q --pattern all flat.png");
    ASSERT_EQ(r.status, 0) << r.err;
    std::istringstream lines(r.out);
    std::string line;
    std::getline(lines, line);
    int rows = 0;
    for (; std::getline(lines, line); ++rows)
        EXPECT_EQ(line.find("inf") == std::string::npos, line.rfind("laplacian 2", 0) == 0) << line;
    EXPECT_EQ(rows, 8);
}

// The quality tool's table: method label to its cells ("-" where a method has none).
std::map<std::string, std::string> quality_table(const std::string& out) {
    std::map<std::string, std::string> cells;
    std::istringstream lines(out);
    std::string line;
    std::getline(lines, line);
    // "LABEL   PSNR   MEAN", the label padded to 18 columns.
    while (std::getline(lines, line)) {
        std::string label = line.substr(0, 18);
        label.erase(label.find_last_not_of(' ') + 1);
        cells[label] = line.substr(18);
    }
    return cells;
}

TEST_F(Cli, QualityRanksMethodsPlausiblyAndRefusesBadCalls) {
    const std::string cat = " '" + std::string(QZRCFA_SAMPLES) + "/chelsea.png'";
    const Outcome r = run("$Q" + cat);
    ASSERT_EQ(r.status, 0) << r.err;
    std::map<std::string, double> score;
    for (const auto& [label, cells] : quality_table(r.out)) score[label] = std::stod(cells);
    ASSERT_EQ(score.size(), 8u) << r.out;
    for (const auto& [method, psnr] : score) EXPECT_TRUE(psnr > 20 && psnr < 60) << method << " " << psnr;
    for (const char* better : {"bilinear", "edge sensing 1", "laplacian", "smooth hue"})
        EXPECT_GT(score[better], score["nearest neighbour"]) << better;
    EXPECT_GT(score["laplacian"], score["bilinear"]);
    EXPECT_GT(score["gbri"], 42.0) << "the cat, 42.3 dB when gbri was made";

    // 16-bit mosaics take every method, and so does the general rule every pattern; it
    // has one Laplacian (the members' second one displaces its green pass). The members
    // of edge2 and laplacian2 are RGGB's; of 16-bit mosaics, nearest's.
    struct Measured {
        const char* args;
        int measured;      // methods with a number
        bool laplacians;   // laplacian and laplacian 2 alike
    };
    for (const Measured& m : {Measured{"--depth 16", 8, true}, Measured{"--rule general --pattern bggr", 8, true}, Measured{"--pattern BGGR", 6, false},
                              Measured{"--depth=16 --rule=member", 1, true}}) {
        SCOPED_TRACE(m.args);
        const Outcome q = run("$Q " + std::string(m.args) + cat);
        ASSERT_EQ(q.status, 0) << q.err;
        std::map<std::string, std::string> cells = quality_table(q.out);
        EXPECT_EQ(std::count_if(cells.begin(), cells.end(), [](const auto& c) { return c.second.find('-') == std::string::npos; }), m.measured)
            << q.out;
        EXPECT_EQ(cells["laplacian"] == cells["laplacian 2"], m.laplacians) << q.out;
    }

    qzrcfa::tools::write_png(path("grey.png").string(), Image{8, 8, 1, 8, std::vector<std::uint8_t>(64, 1), {}});
    for (const auto& [args, status] : {std::pair{"", 2}, {"--pattern XYZW a.png", 2}, {"--rule any a.png", 2}, {"missing.png", 1}, {"grey.png", 1}})
        EXPECT_EQ(run(std::string("$Q ") + args).status, status) << args;
}

}  // namespace
