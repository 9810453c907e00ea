// The method table and the names of everything a request names: one row per method,
// one spelling each plus the spellings people type, read by the extended library, and
// through its C interface (qzrcfa_names, qzrcfa_lookup) by the checked interface, the
// tools, the Python module and the GStreamer element. A new method is its kernels, its
// reference, and a row here.
#pragma once

#include <cstddef>
#include <string_view>

#include "qzrcfa_ext.h"

namespace qzrcfa::catalogue {

struct Name {
    int value;                   // the C interface's value (QZRCFA_METHOD_*, ...)
    std::string_view name;       // the one spelling the library writes
    std::string_view aliases;    // other spellings it reads, comma-separated
    std::string_view identifier; // as an enumerator (qzrcfa::Method::SmoothHue)
    std::string_view label;      // for people: "smooth hue"
    std::string_view summary;    // one line on what it does
};

// What a method is, beyond its names.
struct Method {
    Name name;
    // Its members' exports begin QZRCFA_<members>_; empty for the extended library's
    // own methods, which take every pattern, row order and sample depth.
    std::string_view members;
    int passes;              // over the frame: one, or more (a later pass reading what an earlier wrote)
    int pixels_per_thread;   // threads pay from this many pixels each
    bool grey;               // the extended library's own methods: has grey output
};

inline constexpr int kLight = 256 << 10;  // memory-bound single passes
inline constexpr int kHeavy = 64 << 10;   // two passes, or much arithmetic per pixel

inline constexpr Method kMethods[] = {
    {{QZRCFA_METHOD_NEAREST, "nearest", "nearest-neighbour, nearest-neighbor", "NearestNeighbor", "nearest neighbour",
      "copies from a 2x2 neighbourhood; grey output too"},
     "NearestNeighbor", 1, kLight, false},
    {{QZRCFA_METHOD_BILINEAR, "bilinear", "", "Bilinear", "bilinear",
      "means of the two or four nearest samples of each colour"},
     "Bilinear", 1, kLight, false},
    {{QZRCFA_METHOD_EDGE_SENSING_1, "edge1", "edge-sensing-1", "EdgeSensing1", "edge sensing 1",
      "green along the smaller gradient; its RGGB members are edge2's"},
     "EdgeSensing1", 1, kLight, false},
    {{QZRCFA_METHOD_EDGE_SENSING_2, "edge2", "edge-sensing-2", "EdgeSensing2", "edge sensing 2",
      "edge1, and red and blue along the quieter diagonal"},
     "EdgeSensing2", 1, kLight, false},
    {{QZRCFA_METHOD_LAPLACIAN, "laplacian", "", "Laplacian", "laplacian",
      "gradient-directed green with second-difference correction"},
     "Laplacian", 2, kHeavy, false},
    {{QZRCFA_METHOD_LAPLACIAN_2, "laplacian2", "laplacian-2", "Laplacian2", "laplacian 2",
      "the Laplacian with its green pass displaced"},
     "Laplacian2", 2, kHeavy, false},
    {{QZRCFA_METHOD_SMOOTH_HUE, "smoothhue", "smooth-hue", "SmoothHue", "smooth hue",
      "red and blue from the neighbours' colour-to-green ratios"},
     "SmoothHue", 2, kHeavy, false},
    {{QZRCFA_METHOD_GBRI, "gbri", "", "Gbri", "gbri",
      "gradient-based green, residual-interpolated red and blue: the best colour"},
     "", 2, kHeavy, false},
};

inline constexpr Name kPatterns[] = {
    {QZRCFA_PATTERN_RGGB, "RGGB", "", "RGGB", "RGGB", "red first, then green; green, then blue"},
    {QZRCFA_PATTERN_BGGR, "BGGR", "", "BGGR", "BGGR", "blue first, then green; green, then red"},
    {QZRCFA_PATTERN_GRBG, "GRBG", "", "GRBG", "GRBG", "green first, then red; blue, then green"},
    {QZRCFA_PATTERN_GBRG, "GBRG", "", "GBRG", "GBRG", "green first, then blue; red, then green"},
};

inline constexpr Name kOrders[] = {
    {QZRCFA_ORDER_TOP_DOWN, "top-down", "topdown, down", "TopDown", "top-down", "the picture as the sensor sees it"},
    {QZRCFA_ORDER_BOTTOM_UP, "bottom-up", "bottomup, up, flip", "BottomUp", "bottom-up",
     "last row first, as BMP and DIB store images"},
};

inline constexpr Name kFormats[] = {
    {QZRCFA_FORMAT_BGR24, "bgr24", "bgr", "Bgr24", "BGR", "blue, green, red"},
    {QZRCFA_FORMAT_BGRA32, "bgra32", "bgra, bgrx", "Bgra32", "BGRA", "blue, green, red and a fourth element"},
    {QZRCFA_FORMAT_GREY, "grey", "gray, mono", "Grey", "grey", "one element per pixel"},
};

inline constexpr Name kRules[] = {
    {QZRCFA_RULE_DEFAULT, "default", "", "Default", "default",
     "the member for 8-bit samples and where one serves the request as it is; the general rule otherwise"},
    {QZRCFA_RULE_MEMBER, "member", "export, interface", "Member", "member",
     "the interface's member, byte for byte with its export"},
    {QZRCFA_RULE_GENERAL, "general", "", "General", "general rule",
     "the method's formulas on every pixel, every pattern, order and depth, the border mirrored"},
};

inline constexpr Name kPackings[] = {
    {QZRCFA_PACKING_NONE, "none", "unpacked", "None", "none", "8- or 16-bit samples"},
    {QZRCFA_PACKING_RAW10, "raw10", "csi2-raw10, mipi-raw10", "Raw10", "MIPI CSI-2 RAW10",
     "4 samples in 5 bytes: their bits 9..2, then their bits 1..0"},
    {QZRCFA_PACKING_RAW12, "raw12", "csi2-raw12, mipi-raw12", "Raw12", "MIPI CSI-2 RAW12",
     "2 samples in 3 bytes: their bits 11..4, then their bits 3..0"},
    {QZRCFA_PACKING_P10, "10p", "mono10p, genicam-10p", "P10", "GenICam 10p",
     "a little-endian bit stream of 10-bit samples"},
    {QZRCFA_PACKING_P12, "12p", "mono12p, genicam-12p", "P12", "GenICam 12p",
     "a little-endian bit stream of 12-bit samples"},
    {QZRCFA_PACKING_PACKED12, "12packed", "mono12packed, gige-12packed", "Packed12", "GigE Vision 12Packed",
     "2 samples in 3 bytes: bits 11..4 of the first, both low nibbles, bits 11..4 of the second"},
};

inline constexpr Name kCurves[] = {
    {QZRCFA_CURVE_LINEAR, "linear", "none", "Linear", "linear", "values as they are"},
    {QZRCFA_CURVE_SRGB, "srgb", "s-rgb", "Srgb", "sRGB", "the sRGB transfer curve"},
    {QZRCFA_CURVE_GAMMA, "gamma", "", "Gamma", "gamma", "linear ^ (1 / gamma)"},
};

constexpr const Method* find_method(int value) {
    for (const Method& m : kMethods)
        if (m.name.value == value) return &m;
    return nullptr;
}

}  // namespace qzrcfa::catalogue
