// The Python module `qzrcfa`, over the checked C++ interface (qzrcfa.hpp) and the
// extended library.
//
// Every check on a request lives once, in the checked interface. This layer only
// translates: a numpy array becomes a view when its dtype, dimensions and layout say
// what the view needs (its data pointer, its row stride, and the elements from its
// first to the end of its last row, so that the interface's size and overlap checks see
// the arrays as they are), a name becomes an enum value, and a refusal becomes a
// ValueError carrying the interface's message. Arrays are used in place, never copied:
// one whose rows are not each one run of elements is refused.
//
// No message quotes an argument's value beyond a name or a number: an array's repr can
// be megabytes of someone's picture. That is why the functions bind their own arguments
// (pybind11 answers an unknown keyword with the repr of every argument).
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "qzrcfa.hpp"

namespace py = pybind11;

namespace {

using qzrcfa::Curve;
using qzrcfa::Format;
using qzrcfa::Method;
using qzrcfa::Packing;
using qzrcfa::Pattern;
using qzrcfa::RowOrder;
using qzrcfa::Rule;

std::string type_name(const py::handle& value) { return Py_TYPE(value.ptr())->tp_name; }

// A text the caller typed, short enough to quote.
std::string cut(std::string text) { return text.size() > 40 ? text.substr(0, 37) + "..." : text; }

// ---- Names ----------------------------------------------------------------------------

// Every kind's names are the library's table (qzrcfa_names), read as qzrcfa_lookup reads
// them: the name or an alias, any case, with or without '-', '_' and spaces.
template <class E>
std::vector<const qzrcfa_name*> entries() {
    std::vector<const qzrcfa_name*> all;
    for (int i = 0; const qzrcfa_name* n = qzrcfa_names(qzrcfa::detail::kNames<E>, i); ++i) all.push_back(n);
    return all;
}

// "'a', 'b' or 'c'".
template <class E>
std::string quoted_names(const char* last = " or ") {
    const std::vector<const qzrcfa_name*> all = entries<E>();
    std::string out;
    for (std::size_t i = 0; i < all.size(); ++i)
        out += std::string(i == 0 ? "" : i + 1 == all.size() ? last : ", ") + "'" + all[i]->name + "'";
    return out;
}

// An enum argument: the enum itself or one of its names (any case, with or without '-',
// '_' and spaces); `fallback` when the caller left it out.
template <class E>
E to_enum(const py::handle& value, const char* argument, const char* enum_name, E fallback) {
    if (!value) return fallback;
    if (py::isinstance<E>(value)) return value.cast<E>();
    if (py::isinstance<py::str>(value)) {
        const std::string name = value.cast<std::string>();
        if (const std::optional<E> e = qzrcfa::from_string<E>(name)) return *e;
        throw py::value_error("unknown " + std::string(argument) + " '" + cut(name) + "' (one of " + quoted_names<E>(", ") + ")");
    }
    throw py::type_error(std::string(argument) + " must be a qzrcfa." + enum_name + " or one of its names (" +
                         quoted_names<E>(", ") + "), not " + type_name(value));
}

// ---- Arguments ------------------------------------------------------------------------

// A function's parameters, bound as Python binds them: the first `positional` by
// position or by name, the rest by name only; the first `required` must be given.
struct Signature {
    const char* function;
    std::vector<const char*> parameters;
    std::size_t positional;
    std::size_t required;
};

std::string joined(const std::vector<const char*>& names, std::size_t count) {
    std::string out;
    for (std::size_t i = 0; i < count; ++i) out += std::string(i ? ", " : "") + names[i];
    return out;
}

// The arguments in the order of the parameters; a null object for each one left out.
std::vector<py::object> bind(const Signature& s, const py::args& args, const py::kwargs& kwargs) {
    const std::string f = std::string(s.function) + "()";
    const std::string all = joined(s.parameters, s.parameters.size());
    if (args.size() > s.positional)
        throw py::type_error(f + " takes at most " + std::to_string(s.positional) + " positional arguments (" +
                             joined(s.parameters, s.positional) + "), not " + std::to_string(args.size()));
    std::vector<py::object> bound(s.parameters.size());
    for (std::size_t i = 0; i < args.size(); ++i) bound[i] = args[i];
    for (const auto& [key, value] : kwargs) {
        const std::string name = py::str(key);
        const auto p = std::find_if(s.parameters.begin(), s.parameters.end(), [&](const char* n) { return name == n; });
        if (p == s.parameters.end()) {
            py::list names;
            for (const char* n : s.parameters) names.append(n);
            const py::list close = py::module_::import("difflib").attr("get_close_matches")(name, names, 1);
            const std::string hint = close.empty() ? "" : " (did you mean '" + close[0].cast<std::string>() + "'?)";
            throw py::type_error(f + " got an unexpected keyword argument '" + cut(name) + "'" + hint + "; it takes " + all);
        }
        py::object& slot = bound[std::size_t(p - s.parameters.begin())];
        if (slot) throw py::type_error(f + " got two values for '" + name + "', by position and by name");
        slot = py::reinterpret_borrow<py::object>(value);
    }
    for (std::size_t i = 0; i < s.required; ++i)
        if (!bound[i]) throw py::type_error(f + " missing required argument '" + s.parameters[i] + "'");
    return bound;
}

// A whole-number argument as a C int (not a bool); the interface judges its value.
int to_int(const py::handle& value, const char* argument) {
    if (PyBool_Check(value.ptr()) || !PyIndex_Check(value.ptr()))
        throw py::type_error(std::string(argument) + " must be an int, not " + type_name(value));
    PyObject* index = PyNumber_Index(value.ptr());
    if (index == nullptr) throw py::error_already_set();
    const py::object number = py::reinterpret_steal<py::object>(index);
    int overflow = 0;
    const long long v = PyLong_AsLongLongAndOverflow(number.ptr(), &overflow);
    if (overflow != 0 || v < INT_MIN || v > INT_MAX)
        throw py::value_error(std::string(argument) + " " + cut(py::str(number)) + " does not fit a C int");
    return int(v);
}

int to_int(const py::handle& value, const char* argument, int fallback) { return value ? to_int(value, argument) : fallback; }

qzrcfa::Options to_options(const py::handle& method, const py::handle& pattern, const py::handle& order,
                           const py::handle& format, const py::handle& rule) {
    const qzrcfa::Options d;
    qzrcfa::Options o;
    o.method = to_enum<Method>(method, "method", "Method", d.method);
    o.pattern = to_enum<Pattern>(pattern, "pattern", "Pattern", d.pattern);
    o.order = to_enum<RowOrder>(order, "order", "RowOrder", d.order);
    o.format = to_enum<Format>(format, "format", "Format", d.format);
    o.rule = to_enum<Rule>(rule, "rule", "Rule", d.rule);
    return o;
}

// ---- A picture: black level, white balance, colour matrix, curve ----------------------

bool given(const py::handle& value) { return value && !value.is_none(); }

bool to_bool(const py::handle& value, const char* argument) {
    if (!given(value)) return false;
    if (!PyBool_Check(value.ptr())) throw py::type_error(std::string(argument) + " must be True or False, not " + type_name(value));
    return value.ptr() == Py_True;
}

// A real number (an int, a float or a numpy scalar; not a bool); the library judges it.
double to_number(const py::handle& value, const std::string& argument) {
    const bool array = py::isinstance<py::array>(value) && py::reinterpret_borrow<py::array>(value).ndim() > 0;
    if (!PyBool_Check(value.ptr()) && !array) {
        const double v = PyFloat_AsDouble(value.ptr());
        if (v != -1.0 || !PyErr_Occurred()) return v;
        const bool huge = PyErr_ExceptionMatches(PyExc_OverflowError);  // an int beyond any double
        PyErr_Clear();
        if (huge) return std::numeric_limits<double>::infinity();
    }
    throw py::type_error(argument + " must be a number, not " + type_name(value));
}

// Beyond the largest float, infinite: refused by the library as any infinity is.
float to_float(double v) {
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    if (std::isfinite(v) && std::fabs(v) > double(std::numeric_limits<float>::max())) return v > 0 ? kInfinity : -kInfinity;
    return float(v);
}

// A list, a tuple, an array of at least one dimension: not a text, not a number.
bool is_sequence(const py::handle& value) {
    if (py::isinstance<py::str>(value) || py::isinstance<py::bytes>(value)) return false;
    if (py::isinstance<py::array>(value)) return py::reinterpret_borrow<py::array>(value).ndim() > 0;
    return PySequence_Check(value.ptr()) != 0;
}

// The `count` items of a sequence; `wanted` says what the argument takes.
std::vector<py::object> items(const py::handle& value, std::size_t count, const char* argument, const char* wanted) {
    if (!is_sequence(value)) throw py::type_error(std::string(argument) + " must be " + wanted + ", not " + type_name(value));
    const py::sequence s = py::reinterpret_borrow<py::sequence>(value);
    if (s.size() != count)
        throw py::value_error(std::string(argument) + " must be " + wanted + ", not " + std::to_string(s.size()) + " values");
    std::vector<py::object> out;
    for (std::size_t i = 0; i < count; ++i) out.push_back(s[i]);
    return out;
}

constexpr char kBlack[] = "one int or four (row 0 column 0, row 0 column 1, row 1 column 0, row 1 column 1)";
constexpr char kGains[] = "three gains (r, g, b) or 'auto'";
constexpr char kMatrix[] = "3 x 3 (output red, green and blue rows, each of camera red, green and blue)";

std::array<int, 4> to_black(const py::handle& value) {
    std::array<int, 4> black{};
    if (!given(value)) return black;
    if (!is_sequence(value)) {
        black.fill(to_int(value, "black"));
        return black;
    }
    const std::vector<py::object> four = items(value, 4, "black", kBlack);
    for (std::size_t i = 0; i < 4; ++i) black[i] = to_int(four[i], "black");
    return black;
}

// Gains of zero are the library's "no gains": the module says so rather than apply none.
void to_white_balance(const py::handle& value, qzrcfa::Picture& p) {
    if (!given(value)) return;
    if (py::isinstance<py::str>(value)) {
        const std::string text = value.cast<std::string>();
        std::string lower;
        for (char c : text) lower += char(std::tolower(static_cast<unsigned char>(c)));
        if (lower != "auto") throw py::value_error(std::string("wb must be ") + kGains + ", not '" + cut(text) + "'");
        p.auto_white_balance = true;
        return;
    }
    const std::vector<py::object> gains = items(value, 3, "wb", kGains);
    for (std::size_t i = 0; i < 3; ++i) p.gains[i] = to_float(to_number(gains[i], "a gain"));
    if (std::all_of(p.gains.begin(), p.gains.end(), [](float g) { return g == 0; }))
        throw py::value_error("wb gains 0, 0, 0: each gain must be above 0 and at most 64 (wb=None applies none)");
}

void to_matrix(const py::handle& value, qzrcfa::Picture& p) {
    if (!given(value)) return;
    const std::vector<py::object> rows = items(value, 3, "matrix", kMatrix);
    for (std::size_t r = 0; r < 3; ++r) {
        const std::vector<py::object> row = items(rows[r], 3, "matrix", kMatrix);
        for (std::size_t c = 0; c < 3; ++c) p.matrix[3 * r + c] = to_float(to_number(row[c], "a matrix entry"));
    }
    if (std::all_of(p.matrix.begin(), p.matrix.end(), [](float m) { return m == 0; }))
        throw py::value_error("matrix is all zeros (matrix=None applies none)");
}

// A curve's name, or a number: that gamma.
void to_curve(const py::handle& value, qzrcfa::Picture& p) {
    if (!given(value)) return;
    if (py::isinstance<py::str>(value) || py::isinstance<Curve>(value)) {
        p.curve = to_enum<Curve>(value, "curve", "Curve", Curve::Linear);
        if (p.curve == Curve::Gamma) throw py::value_error("curve takes a gamma as the number itself (curve=2.2, say), not by name");
        return;
    }
    double gamma = 0;
    try {
        gamma = to_number(value, "curve");
    } catch (const py::type_error&) {
        throw py::type_error("curve must be a qzrcfa.Curve, one of its names (" + quoted_names<Curve>(", ") + ") or a gamma, not " +
                             type_name(value));
    }
    p.curve = Curve::Gamma;
    p.gamma = to_float(gamma);
}

qzrcfa::Picture to_picture(const py::handle& black, const py::handle& wb, const py::handle& matrix, const py::handle& curve) {
    qzrcfa::Picture p;
    p.black = to_black(black);
    to_white_balance(wb, p);
    to_matrix(matrix, p);
    to_curve(curve, p);
    return p;
}

// ---- Arrays ---------------------------------------------------------------------------

// Bits per element of uint8 or uint16 in the machine's byte order; 0 for anything else.
int depth_of(const py::dtype& d) {
    if (d.equal(py::dtype::of<std::uint8_t>())) return 8;
    if (d.equal(py::dtype::of<std::uint16_t>())) return 16;
    return 0;
}

int depth_of(const py::array& a) { return depth_of(a.dtype()); }

const char* dtype_name(int depth) { return depth == 8 ? "uint8" : "uint16"; }

// The output elements' depth that `dtype=` asks for: 0 when left out.
int to_output_depth(const py::handle& value) {
    if (!value || value.is_none()) return 0;
    const char* wanted = "dtype must be numpy.uint8 or numpy.uint16 (or its name)";
    if (!py::isinstance<py::dtype>(value) && !PyType_Check(value.ptr()) && !py::isinstance<py::str>(value))
        throw py::type_error(std::string(wanted) + ", not " + type_name(value));
    py::dtype d;
    try {
        d = py::dtype::from_args(py::reinterpret_borrow<py::object>(value));
    } catch (const py::error_already_set&) {
        throw py::type_error(std::string(wanted) + ", not " +
                             (py::isinstance<py::str>(value) ? "'" + cut(value.cast<std::string>()) + "'" : type_name(value)));
    }
    const int depth = depth_of(d);
    if (depth == 0) throw py::type_error(std::string(wanted) + ", not " + py::str(d).cast<std::string>());
    return depth;
}

std::string shape_of(const py::array& a) {
    std::string s = "(";
    for (py::ssize_t i = 0; i < a.ndim(); ++i) s += (i ? ", " : "") + std::to_string(a.shape(i));
    return s + (a.ndim() == 1 ? ",)" : ")");
}

std::string strides_of(const py::array& a) {
    std::string s = "(";
    for (py::ssize_t i = 0; i < a.ndim(); ++i) s += (i ? ", " : "") + std::to_string(a.strides(i));
    return s + (a.ndim() == 1 ? ",)" : ")");
}

// An argument that must be a numpy array of uint8 or uint16.
py::array to_array(const py::handle& value, const char* argument) {
    if (!py::isinstance<py::array>(value))
        throw py::type_error(std::string(argument) + " must be a numpy array of uint8 or uint16, not " + type_name(value));
    py::array a = py::reinterpret_borrow<py::array>(value);
    if (depth_of(a) == 0)
        throw py::type_error(std::string(argument) + " must hold uint8 or uint16 in the machine's byte order, not " +
                             py::str(a.dtype()).cast<std::string>());
    return a;
}

// An image-shaped array as the interface sees it: its first row, the elements from there
// to the end of its last row, and the bytes from a row to the next (0 for one row). Its
// rows may be padded, but each must be one run of aligned elements, the rows forwards.
struct Rows {
    std::size_t count = 0;
    std::ptrdiff_t stride = 0;
};

Rows rows_of(const py::array& a, const char* argument) {
    const bool out = std::strcmp(argument, "out") == 0;
    const auto refuse = [&](const std::string& why, const char* fix) {
        return py::value_error(std::string(argument) + why + ": such arrays are refused, not copied (" +
                               (out ? "fill an array numpy.empty made, or a view of its rows" : fix) + ")");
    };
    if (!a.attr("flags").attr("aligned").cast<bool>())
        throw refuse(" is not aligned to its " + std::to_string(a.itemsize()) + "-byte " + py::str(a.dtype()).cast<std::string>() +
                         " elements (as numpy.frombuffer at an odd offset makes)",
                     "raw.copy() makes an aligned copy");
    const char* copy = "numpy.ascontiguousarray(raw) makes a copy that is";
    py::ssize_t step = a.itemsize();
    for (py::ssize_t d = a.ndim() - 1; d >= 1; --d) {
        if (a.shape(d) != 1 && a.strides(d) != step)
            throw refuse("'s rows are not contiguous (strides " + strides_of(a) + " for shape " + shape_of(a) + " of " +
                             std::to_string(a.itemsize()) + "-byte elements; each row must be one run of elements)",
                         copy);
        step *= a.shape(d);
    }
    const py::ssize_t row_bytes = step, height = a.shape(0);
    Rows r;
    r.count = std::size_t(a.size());
    if (height <= 1) return r;
    r.stride = a.strides(0);
    if (r.stride == 0) throw refuse("'s rows are all one row (a row stride of 0 bytes, as numpy.broadcast_to makes)", copy);
    if (r.stride < 0)
        throw refuse("'s rows run backwards (a row stride of " + std::to_string(r.stride) + " bytes, as x[::-1] makes)", copy);
    // A stride below a row is the interface's to refuse, before it reads.
    if (r.stride >= row_bytes) r.count = std::size_t(((height - 1) * r.stride + row_bytes) / a.itemsize());
    return r;
}

// The raw frame as the interface reads it, the object that owns its memory, and the
// depth of its samples as the output takes them (packed samples become 16-bit).
struct Frame {
    py::object owner;
    qzrcfa::RawFrame view;
    int depth;
};

// 8- or 16-bit samples: a 2-D array, its shape the frame's.
Frame unpacked_frame(const py::handle& value, const py::handle& bits_arg) {
    const py::array raw = to_array(value, "raw");
    if (raw.ndim() != 2)
        throw py::value_error("raw must be 2-D (height, width), not " + std::to_string(raw.ndim()) + "-D with shape " + shape_of(raw));
    if (raw.shape(0) > INT_MAX || raw.shape(1) > INT_MAX)
        throw py::value_error("raw has shape " + shape_of(raw) + ": its height and width must each fit a C int");
    const int height = int(raw.shape(0)), width = int(raw.shape(1)), depth = depth_of(raw);
    int bits = 0;
    if (given(bits_arg)) {
        bits = to_int(bits_arg, "bits");
        if (depth == 8) throw py::value_error("bits is for uint16 samples; raw holds uint8, all 8 bits significant");
    }
    const Rows r = rows_of(raw, "raw");
    if (depth == 8) return {raw, {static_cast<const std::uint8_t*>(raw.data()), r.count, width, height, r.stride}, 8};
    return {raw, {static_cast<const std::uint16_t*>(raw.data()), r.count, width, height, r.stride, bits}, 16};
}

// Packed rows' bytes: a uint8 array, or any other object whose memory is one run of
// bytes (bytes, bytearray, memoryview), seen as a 1-D array of it.
py::array packed_bytes(const py::handle& value, const std::string& packing) {
    if (py::isinstance<py::array>(value)) {
        const py::array a = py::reinterpret_borrow<py::array>(value);
        if (!a.dtype().equal(py::dtype::of<std::uint8_t>()))
            throw py::type_error("raw of " + packing + " rows must hold their bytes as uint8, not " + py::str(a.dtype()).cast<std::string>());
        if (a.ndim() != 1 && a.ndim() != 2)
            throw py::value_error("raw of packed rows must be 2-D (a packed row each) or 1-D, not " + std::to_string(a.ndim()) +
                                  "-D with shape " + shape_of(a));
        return a;
    }
    if (!PyObject_CheckBuffer(value.ptr()))
        throw py::type_error("raw of " + packing + " rows must be a numpy array of uint8, bytes, bytearray or memoryview, not " +
                             type_name(value));
    try {
        return py::module_::import("numpy").attr("frombuffer")(value, "uint8");
    } catch (const py::error_already_set& e) {
        if (!e.matches(PyExc_BufferError)) throw;
    }
    throw py::value_error("raw's bytes are not one run of memory: such buffers are refused, not copied (bytes(raw) makes a copy that is)");
}

// A sensor's packed rows: 2-D, a packed row in each of its rows (the frame's height and
// row stride); or 1-D with the height and the stride (0: rows back to back) given. The
// width is always given: a row's bytes do not say where in its last group it ends.
Frame packed_frame(const py::handle& value, Packing packing, const py::handle& width_arg, const py::handle& height_arg,
                   const py::handle& stride_arg, const py::handle& bits_arg) {
    const std::string name(qzrcfa::to_string(packing));
    const py::array bytes = packed_bytes(value, name);
    const bool flat = bytes.ndim() == 1;
    if (!given(width_arg) || (flat && !given(height_arg)))
        throw py::type_error(std::string(flat ? "a 1-D raw of " + name + " rows needs width= and height=" : "raw of " + name + " rows needs width=") +
                             " (its bytes do not say where a row ends)");
    const int width = to_int(width_arg, "width");
    const int bits = given(bits_arg) ? to_int(bits_arg, "bits") : 0;
    const auto* data = static_cast<const std::uint8_t*>(bytes.data());
    if (flat) {
        if (!(bytes.flags() & py::array::c_style))
            throw py::value_error("raw, 1-D, is not one run of bytes (stride " + std::to_string(bytes.strides(0)) +
                                  "): such arrays are refused, not copied (numpy.ascontiguousarray(raw) makes a copy that is)");
        const int height = to_int(height_arg, "height");
        const std::ptrdiff_t stride = given(stride_arg) ? to_int(stride_arg, "stride") : 0;
        return {bytes, {data, std::size_t(bytes.size()), width, height, packing, stride, bits}, 16};
    }
    if (given(stride_arg))
        throw py::value_error("stride is for a 1-D raw: a 2-D raw's rows are " + std::to_string(bytes.strides(0)) + " bytes apart");
    if (bytes.shape(0) > INT_MAX) throw py::value_error("raw has shape " + shape_of(bytes) + ": its height must fit a C int");
    const int height = int(bytes.shape(0));
    if (given(height_arg) && to_int(height_arg, "height") != height)
        throw py::value_error("height " + std::to_string(to_int(height_arg, "height")) + " disagrees with raw's " + std::to_string(height) +
                              " rows");
    const Rows r = rows_of(bytes, "raw");
    return {bytes, {data, r.count, width, height, packing, r.stride, bits}, 16};
}

Frame to_frame(const py::handle& raw, const py::handle& packing_arg, const py::handle& width, const py::handle& height,
               const py::handle& stride, const py::handle& bits) {
    const Packing packing = given(packing_arg) ? to_enum<Packing>(packing_arg, "packing", "Packing", Packing::None) : Packing::None;
    if (packing != Packing::None) return packed_frame(raw, packing, width, height, stride, bits);
    if (given(width) || given(height) || given(stride))
        throw py::value_error("width, height and stride are for packed rows (packing=): an unpacked raw's shape and strides say them");
    return unpacked_frame(raw, bits);
}

// Stands in for an output not yet made, so that check() judges the request, its size
// included, before an array of that size is made: check() reads nothing, and looks at
// the output's address only to compare it with the frame's, which ends before this one.
qzrcfa::OutputImage stand_in(const qzrcfa::RawFrame& raw, int depth, std::size_t elements) {
    const std::uintptr_t end = reinterpret_cast<std::uintptr_t>(raw.data()) + raw.count() * raw.sample_bytes();
    const std::uintptr_t at = (end + 1) & ~std::uintptr_t(1);  // aligned for 16-bit elements
    if (depth == 8) return {reinterpret_cast<std::uint8_t*>(at), elements};
    return {reinterpret_cast<std::uint16_t*>(at), elements};
}

qzrcfa::OutputImage out_view(py::array& a, const Rows& r) {
    if (depth_of(a) == 8) return {static_cast<std::uint8_t*>(a.mutable_data()), r.count, r.stride};
    return {static_cast<std::uint16_t*>(a.mutable_data()), r.count, r.stride};
}

// A new output, image-shaped or flat when the method writes past the image; filled
// once the GIL is released.
template <class T>
py::array new_output(std::size_t elements, const std::vector<py::ssize_t>& shape, std::size_t image) {
    return elements == image ? py::array_t<T>(shape) : py::array_t<T>(py::ssize_t(elements));
}

// ---- Functions ------------------------------------------------------------------------

const Signature kDemosaic{"demosaic",
                          {"raw", "method", "pattern", "order", "format", "threads", "out", "bits", "dtype", "rule", "packing",
                           "width", "height", "stride", "black", "wb", "matrix", "curve", "return_gains"},
                          7,
                          1};

py::object demosaic(const py::args& args, const py::kwargs& kwargs) {
    const std::vector<py::object> a = bind(kDemosaic, args, kwargs);
    const py::object& out_arg = a[6];
    qzrcfa::Options options = to_options(a[1], a[2], a[3], a[4], a[9]);
    options.threads = to_int(a[5], "threads", options.threads);
    const int wanted_depth = to_output_depth(a[8]);
    options.picture = to_picture(a[14], a[15], a[16], a[17]);
    const bool return_gains = to_bool(a[18], "return_gains");
    const Frame raw = to_frame(a[0], a[10], a[11], a[12], a[13], a[7]);
    const qzrcfa::RawFrame& frame = raw.view;
    const int height = frame.height(), width = frame.width(), depth = raw.depth;

    const std::size_t per_pixel = options.format == Format::Grey ? 1 : options.format == Format::Bgra32 ? 4 : 3;
    std::vector<py::ssize_t> shape = {height, width};
    if (per_pixel > 1) shape.push_back(py::ssize_t(per_pixel));
    const std::size_t image = std::size_t(width) * std::size_t(height) * per_pixel;

    py::array out;
    Rows out_rows;
    bool fresh = false;
    if (!given(out_arg)) {
        const int output_depth = wanted_depth ? wanted_depth : depth;
        const std::size_t elements = qzrcfa::output_elements(width, height, options, depth, output_depth);
        if (const qzrcfa::Result r = qzrcfa::check(frame, stand_in(frame, output_depth, elements), options); !r)
            throw py::value_error(r.message());
        out = output_depth == 8 ? new_output<std::uint8_t>(elements, shape, image)
                                : new_output<std::uint16_t>(elements, shape, image);
        out_rows.count = elements;
        fresh = true;
    } else {
        out = to_array(out_arg, "out");
        if (wanted_depth && wanted_depth != depth_of(out))
            throw py::value_error(std::string("dtype ") + dtype_name(wanted_depth) + " disagrees with out's " +
                                  dtype_name(depth_of(out)) + " elements (out alone says the elements' type)");
        if (!out.writeable()) throw py::value_error("out is read-only");
        const bool image_shaped = out.ndim() == py::ssize_t(shape.size()) && std::equal(shape.begin(), shape.end(), out.shape());
        if (image_shaped) {
            out_rows = rows_of(out, "out");
        } else if (out.ndim() == 1) {
            if (!(out.flags() & py::array::c_style))
                throw py::value_error("out, a 1-D buffer, must be contiguous (strides " + strides_of(out) +
                                      "): such arrays are refused, not copied (numpy.empty gives one that is)");
            out_rows.count = std::size_t(out.size());
        } else {
            std::string expected = "(" + std::to_string(height) + ", " + std::to_string(width);
            expected += per_pixel > 1 ? ", " + std::to_string(per_pixel) + ")" : ")";
            throw py::value_error("out has shape " + shape_of(out) + "; " + std::string(qzrcfa::to_string(options.format)) +
                                  " output of a " + std::to_string(width) + "x" + std::to_string(height) + " frame takes " +
                                  expected + ", or a 1-D buffer of qzrcfa.output_elements() elements");
        }
    }

    const qzrcfa::OutputImage view = out_view(out, out_rows);
    qzrcfa::Result result;
    {
        py::gil_scoped_release release;
        // The fourth element of bgra32 keeps what the buffer held where the method
        // leaves it: a new array starts opaque. Everything else starts at 0.
        if (fresh) std::memset(view.data(), options.format == Format::Bgra32 ? 0xFF : 0, view.count() * view.element_bytes());
        result = qzrcfa::demosaic(frame, view, options);
    }
    if (!result) throw py::value_error(result.message());
    // A flat buffer (given, or holding the slack some members write past the image):
    // the image is a view of its first elements.
    const py::array picture =
        out.ndim() == py::ssize_t(shape.size()) ? out : py::array(out.dtype(), shape, {}, out.mutable_data(), out);
    if (!return_gains) return picture;
    const std::array<float, 3>& g = result.gains_used();
    return py::make_tuple(picture, py::make_tuple(g[0], g[1], g[2]));
}

const Signature kAutoWhiteBalance{"auto_white_balance", {"raw", "pattern", "bits", "packing", "width", "height", "stride", "black"}, 2, 1};

py::tuple auto_white_balance(const py::args& args, const py::kwargs& kwargs) {
    const std::vector<py::object> a = bind(kAutoWhiteBalance, args, kwargs);
    qzrcfa::Options options;
    options.pattern = to_enum<Pattern>(a[1], "pattern", "Pattern", options.pattern);
    options.picture.black = to_black(a[7]);
    const Frame raw = to_frame(a[0], a[3], a[4], a[5], a[6], a[2]);
    qzrcfa::Result result;
    {
        py::gil_scoped_release release;
        result = qzrcfa::auto_white_balance(raw.view, options);
    }
    if (!result) throw py::value_error(result.message());
    const std::array<float, 3>& g = result.gains_used();
    return py::make_tuple(g[0], g[1], g[2]);
}

const Signature kOutputElements{
    "output_elements", {"width", "height", "method", "pattern", "order", "format", "depth", "output_depth", "rule"}, 7, 2};

std::size_t output_elements(const py::args& args, const py::kwargs& kwargs) {
    const std::vector<py::object> a = bind(kOutputElements, args, kwargs);
    const qzrcfa::Options options = to_options(a[2], a[3], a[4], a[5], a[8]);
    return qzrcfa::output_elements(to_int(a[0], "width"), to_int(a[1], "height"), options, to_int(a[6], "depth", 8),
                                   a[7] && !a[7].is_none() ? to_int(a[7], "output_depth") : 0);
}

const Signature kMinimumSize{"minimum_size", {"method", "pattern", "order", "format", "depth", "output_depth", "rule"}, 5, 0};

py::tuple minimum_size(const py::args& args, const py::kwargs& kwargs) {
    const std::vector<py::object> a = bind(kMinimumSize, args, kwargs);
    const qzrcfa::Options options = to_options(a[0], a[1], a[2], a[3], a[6]);
    const qzrcfa::Size s =
        qzrcfa::minimum_size(options, to_int(a[4], "depth", 8), a[5] && !a[5].is_none() ? to_int(a[5], "output_depth") : 0);
    return py::make_tuple(s.width, s.height);
}

// A Python enum of the values of a kind, each under its identifier, with its name and
// summary as its documentation.
template <class E>
void add_enum(py::module_& m, const char* name, const std::string& doc) {
    py::enum_<E> e(m, name, doc.c_str());
    for (const qzrcfa_name* n : entries<E>())
        e.value(n->identifier, E(n->value), (std::string("'") + n->name + "': " + n->summary).c_str());
}

// A docstring with each {methods}, {patterns}, {orders}, {formats}, {rules}, {packings}
// and {curves} replaced by the names of that kind.
std::string doc(std::string text) {
    const std::pair<const char*, std::string> lists[] = {{"{methods}", quoted_names<Method>()},
                                                         {"{patterns}", quoted_names<Pattern>()},
                                                         {"{orders}", quoted_names<RowOrder>()},
                                                         {"{formats}", quoted_names<Format>()},
                                                         {"{rules}", quoted_names<Rule>()},
                                                         {"{packings}", quoted_names<Packing>()},
                                                         {"{curves}", quoted_names<Curve>()}};
    for (const auto& [key, names] : lists)
        for (std::size_t at; (at = text.find(key)) != std::string::npos;) text.replace(at, std::strlen(key), names);
    return text;
}

const char kModuleDoc[] = R"(Bayer demosaicing: raw frames from single-sensor colour cameras to BGR, BGRA or
grey images, through the checked interface of the qzrcfa library.

    import numpy, qzrcfa
    raw = numpy.fromfile("frame.raw", numpy.uint8).reshape(480, 640)
    bgr = qzrcfa.demosaic(raw, "laplacian", "GRBG")      # (480, 640, 3) uint8, B G R
    import cv2                                            # OpenCV, if you use it:
    cv2.imwrite("frame.png", bgr)                         # BGR is its own order

A camera's packed frame (MIPI CSI-2, GenICam or GigE Vision rows) goes in as its bytes,
and black level, white balance, a colour matrix and an output curve are applied in the
same pass:

    bgr = qzrcfa.demosaic(frame_bytes, "laplacian", "GRBG", packing="raw12", width=1920,
                          height=1080, black=256, wb="auto", curve="srgb", dtype=numpy.uint8)

A request the library cannot serve (a combination without a function, a frame too
small for the method, a thread count out of range, buffers too small or overlapping)
raises ValueError with the library's message; arguments of the wrong kind raise
TypeError. Arrays are used in place, never copied. The GIL is released while the
library works.
)";

// The first line, up to "--", is the signature inspect.signature() reads.
const char kDemosaicDoc[] =
    R"(demosaic(raw, method='bilinear', pattern='RGGB', order='top-down', format='bgr24', threads=1, out=None, *, bits=None, dtype=None, rule='default', packing=None, width=None, height=None, stride=None, black=None, wb=None, matrix=None, curve=None, return_gains=False)
--

Demosaics one raw frame and returns the image: a new array, or out filled.

raw
    The frame: a 2-D numpy array (height, width) of uint8 or uint16 samples. It is
    read in place: its rows may be padded (raw[:, :w] of a wider array), but each
    row must be one run of samples; other layouts are refused, not copied
    (numpy.ascontiguousarray makes a copy that is). uint16 samples must be aligned
    to 2 bytes. With packing=, the frame's packed bytes (below).
method
    A qzrcfa.Method or its name:
    {methods}.
    Each takes uint8 and uint16 samples. Under the member rule (the default for
    uint8) 'edge2' serves RGGB only and 'laplacian2' RGGB top-down only; under the
    general rule every method serves every pattern and order.
pattern
    A qzrcfa.Pattern or its name: the colours of the frame's top-left 2x2 tile,
    {patterns}.
order
    A qzrcfa.RowOrder or its name: {orders}; 'bottom-up' writes the
    image's rows from the last to the first (the frame is read top-down either way).
format
    A qzrcfa.Format or its name: 'bgr24' gives (height, width, 3) with blue, green,
    red; 'bgra32' gives (height, width, 4), the fourth element being what the method
    leaves there (in a new array, the largest value: opaque); 'grey' (nearest only)
    gives (height, width).
threads
    An int: 1 runs on the calling thread (with the member rule, exactly a direct call
    of the library's function); 0 uses every processor (qzrcfa.processors()); N up to
    1024 uses up to N threads over bands of rows, with the same result. Small frames
    run on one thread.
out
    None for a new array, or an array to fill in place: writeable, of the output's
    dtype, shaped as the result (its rows may be padded, as raw's; the padding is
    left as it is), or 1-D and contiguous with at least qzrcfa.output_elements()
    elements (the bottom-up 16-bit grey members write 2 elements past the image,
    which an image-shaped array cannot hold). It must not overlap raw. Returned
    filled (a 1-D buffer as an image-shaped view of its first elements).
bits
    The significant bits of uint16 samples, 9 to 16 (None: 16; 'gbri' takes 16);
    larger values are taken as the largest. Refused with uint8 samples; with packed
    rows, None or the packing's own.
dtype
    numpy.uint8 or numpy.uint16, the output elements (None: raw's, or out's; uint16
    for packed rows). uint8 from uint16 or packed samples (general rule, not 'gbri')
    gives each element rounded from `bits` bits.
rule
    A qzrcfa.Rule or its name: {rules}. 'member' runs the
    library's member for the request, byte for byte with its exported function;
    'general' runs the method's general rule (every pattern, order and depth, the
    border computed as if the frame were mirrored about its edges); 'default' runs
    the member for uint8 samples and for uint16 ones where a member serves the
    request as it is, the general rule otherwise.
packing, width, height, stride
    A qzrcfa.Packing or its name: how a sensor packs 10- or 12-bit samples in its
    rows, {packings}
    (the library's names and their aliases, any case). raw is then the frame's bytes,
    read in place: a 2-D uint8 array with a packed row in each row (padded rows too:
    its row stride is the frame's), or a 1-D uint8 array, bytes, bytearray or
    memoryview with height= and stride= (bytes from a row to the next; None: rows back
    to back). width= (pixels) is always given: a row's bytes do not say where in its
    last group it ends. Each takes the general rule; the samples become 16-bit values.
    width, height and stride are refused without packing.
black
    The black level subtracted from every sample: one int, or four for the places of
    the 2x2 tile (row 0 column 0, row 0 column 1, row 1 column 0, row 1 column 1),
    each below 2^bits.
wb
    White balance after the black level: three gains (red, green, blue), each above
    0 and at most 64, or 'auto': grey world, as qzrcfa.auto_white_balance() finds it.
matrix
    A 3 x 3 colour matrix, row-major: output red, green and blue, each from camera
    red, green and blue.
curve
    The output's transfer curve: a qzrcfa.Curve or its name, 'linear' (None) or
    'srgb'; or a number, that gamma (output = linear ^ (1 / gamma), up to 10).
return_gains
    True returns (image, (r, g, b)): the white-balance gains the call applied (those
    'auto' found; (1.0, 1.0, 1.0) without white balance).

black, wb, matrix, curve and packing each run the general rule.

Raises ValueError with the library's message when it refuses the request (nothing is
written then), TypeError for arguments of the wrong type or dtype and for unknown
keywords, and ValueError for arrays of the wrong dimensions, shape or layout.
)";

const char kAutoWhiteBalanceDoc[] =
    R"(auto_white_balance(raw, pattern='RGGB', *, bits=None, packing=None, width=None, height=None, stride=None, black=None)
--

The white-balance gains (r, g, b) grey world finds in a raw frame, as demosaic() with
wb='auto' applies them: the red and blue gains that bring the means of the frame's
unsaturated red and blue samples, black level subtracted, to the green one's (green
1.0). A video program can find them once and pass them as wb= to later frames. raw,
bits, packing, width, height, stride and black are demosaic()'s. Raises ValueError
when the library refuses, as for a frame with no unsaturated sample of some colour.)";

const char kOutputElementsDoc[] =
    R"(output_elements(width, height, method='bilinear', pattern='RGGB', order='top-down', format='bgr24', depth=8, *, output_depth=None, rule='default')
--

Elements an output buffer with rows back to back must hold for a width x height frame,
the slack some members write past the image included; 0 when demosaic() would refuse
the request whatever the buffers. depth is the bits per sample, 8 or 16; output_depth
the bits per output element (None: depth).)";

const char kMinimumSizeDoc[] =
    R"(minimum_size(method='bilinear', pattern='RGGB', order='top-down', format='bgr24', depth=8, *, output_depth=None, rule='default')
--

Smallest frame the request accepts, as (width, height); (0, 0) when the combination has
no function. A BGGR colour frame of odd width needs at least 3 rows under the member
rule.)";

}  // namespace

PYBIND11_MODULE(qzrcfa, m) {
    py::options docs;
    docs.disable_function_signatures();
    m.doc() = kModuleDoc;
    m.attr("__version__") = QZRCFA_VERSION;

    add_enum<Method>(m, "Method", doc("Interpolation methods; each also goes by its name ({methods})."));
    add_enum<Pattern>(m, "Pattern", doc("Colours of the frame's top-left 2x2 tile; also by name ({patterns})."));
    add_enum<RowOrder>(m, "RowOrder", doc("Row order of the output; also by name ({orders})."));
    add_enum<Format>(m, "Format", doc("Output layout; also by name ({formats})."));
    add_enum<Rule>(m, "Rule", doc("Which rule runs a request; also by name ({rules})."));
    add_enum<Packing>(m, "Packing", doc("How a sensor packs samples in its rows; also by name ({packings})."));
    add_enum<Curve>(m, "Curve", doc("The output's transfer curve; also by name ({curves}), or a gamma as a number."));

    m.def("demosaic", &demosaic, doc(kDemosaicDoc).c_str());
    m.def("auto_white_balance", &auto_white_balance, kAutoWhiteBalanceDoc);
    m.def("output_elements", &output_elements, kOutputElementsDoc);
    m.def("minimum_size", &minimum_size, kMinimumSizeDoc);
    m.def("processors", &qzrcfa_processors, "processors()\n--\n\nThreads a call with threads=0 uses.");
}
