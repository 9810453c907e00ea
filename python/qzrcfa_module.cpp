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
#include <cctype>
#include <climits>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "qzrcfa.hpp"

namespace py = pybind11;

namespace {

using qzrcfa::Format;
using qzrcfa::Method;
using qzrcfa::Pattern;
using qzrcfa::RowOrder;
using qzrcfa::Rule;

std::string type_name(const py::handle& value) { return Py_TYPE(value.ptr())->tp_name; }

// A text the caller typed, short enough to quote.
std::string cut(std::string text) { return text.size() > 40 ? text.substr(0, 37) + "..." : text; }

// ---- Names ----------------------------------------------------------------------------

struct Entry {
    int value;
    const char* name;
    const char* identifier;
    const char* summary;
};

// The rules a request runs under. The library's table names what a request asks of the
// picture (methods, patterns, orders, formats); the rules are named here, and read as
// qzrcfa_lookup reads names.
constexpr Entry kRules[] = {
    {int(Rule::Default), "default", "Default",
     "the member for 8-bit samples and for 16-bit ones where one serves the request as it is; the general rule otherwise"},
    {int(Rule::Member), "member", "Member", "the interface's member, byte for byte with its export"},
    {int(Rule::General), "general", "General",
     "the method's general rule: every pattern, order, depth and bits, 8-bit elements from 16-bit samples, the border mirrored"},
};

template <class E>
constexpr bool kInTable = qzrcfa::detail::kNames<E> >= 0;

template <class E>
std::vector<Entry> entries() {
    if constexpr (kInTable<E>) {
        std::vector<Entry> all;
        for (int i = 0; const qzrcfa_name* n = qzrcfa_names(qzrcfa::detail::kNames<E>, i); ++i)
            all.push_back({n->value, n->name, n->identifier, n->summary});
        return all;
    } else {
        return {std::begin(kRules), std::end(kRules)};
    }
}

// Lower case, without '-', '_' and spaces: how qzrcfa_lookup compares names.
std::string folded(std::string_view text) {
    std::string out;
    for (char c : text)
        if (c != '-' && c != '_' && c != ' ') out += char(std::tolower(static_cast<unsigned char>(c)));
    return out;
}

template <class E>
std::optional<E> lookup(const std::string& text) {
    if constexpr (kInTable<E>) {
        return qzrcfa::from_string<E>(text);
    } else {
        for (const Entry& e : kRules)
            if (folded(e.name) == folded(text)) return E(e.value);
        return std::nullopt;
    }
}

// "'a', 'b' or 'c'".
template <class E>
std::string quoted_names(const char* last = " or ") {
    const std::vector<Entry> all = entries<E>();
    std::string out;
    for (std::size_t i = 0; i < all.size(); ++i)
        out += std::string(i == 0 ? "" : i + 1 == all.size() ? last : ", ") + "'" + all[i].name + "'";
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
        if (const std::optional<E> e = lookup<E>(name)) return *e;
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

qzrcfa::RawFrame raw_view(const py::array& a, int width, int height, int bits) {
    const Rows r = rows_of(a, "raw");
    if (depth_of(a) == 8) return {static_cast<const std::uint8_t*>(a.data()), r.count, width, height, r.stride};
    return {static_cast<const std::uint16_t*>(a.data()), r.count, width, height, r.stride, bits};
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

const Signature kDemosaic{"demosaic", {"raw", "method", "pattern", "order", "format", "threads", "out", "bits", "dtype", "rule"}, 7, 1};

py::array demosaic(const py::args& args, const py::kwargs& kwargs) {
    const std::vector<py::object> a = bind(kDemosaic, args, kwargs);
    const py::object &raw_arg = a[0], &out_arg = a[6], &bits_arg = a[7];
    qzrcfa::Options options = to_options(a[1], a[2], a[3], a[4], a[9]);
    options.threads = to_int(a[5], "threads", options.threads);
    const int wanted_depth = to_output_depth(a[8]);

    const py::array raw = to_array(raw_arg, "raw");
    if (raw.ndim() != 2)
        throw py::value_error("raw must be 2-D (height, width), not " + std::to_string(raw.ndim()) + "-D with shape " + shape_of(raw));
    if (raw.shape(0) > INT_MAX || raw.shape(1) > INT_MAX)
        throw py::value_error("raw has shape " + shape_of(raw) + ": its height and width must each fit a C int");
    const int height = int(raw.shape(0)), width = int(raw.shape(1)), depth = depth_of(raw);
    int bits = 0;
    if (bits_arg && !bits_arg.is_none()) {
        bits = to_int(bits_arg, "bits");
        if (depth == 8) throw py::value_error("bits is for uint16 samples; raw holds uint8, all 8 bits significant");
    }
    const qzrcfa::RawFrame frame = raw_view(raw, width, height, bits);

    const std::size_t per_pixel = options.format == Format::Grey ? 1 : options.format == Format::Bgra32 ? 4 : 3;
    std::vector<py::ssize_t> shape = {height, width};
    if (per_pixel > 1) shape.push_back(py::ssize_t(per_pixel));
    const std::size_t image = std::size_t(width) * std::size_t(height) * per_pixel;

    py::array out;
    Rows out_rows;
    bool fresh = false;
    if (!out_arg || out_arg.is_none()) {
        const int output_depth = wanted_depth ? wanted_depth : depth;
        const std::size_t elements = qzrcfa::output_elements(width, height, options, depth, output_depth);
        if (elements == 0) {  // refused whatever the buffers: say why
            const qzrcfa::Result r =
                output_depth == 8 ? qzrcfa::check(frame, {static_cast<std::uint8_t*>(nullptr), 0}, options)
                                  : qzrcfa::check(frame, {static_cast<std::uint16_t*>(nullptr), 0}, options);
            throw py::value_error(r ? std::string("refused") : r.message());
        }
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
                                  " output of raw of shape " + shape_of(raw) + " takes " + expected +
                                  ", or a 1-D buffer of qzrcfa.output_elements() elements");
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
    if (out.ndim() == py::ssize_t(shape.size())) return out;
    // A flat buffer (given, or holding the slack some members write past the image):
    // the image is a view of its first elements.
    return py::array(out.dtype(), shape, {}, out.mutable_data(), out);
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
    for (const Entry& n : entries<E>()) e.value(n.identifier, E(n.value), (std::string("'") + n.name + "': " + n.summary).c_str());
}

// A docstring with each {methods}, {patterns}, {orders}, {formats} and {rules} replaced by
// the names of that kind.
std::string doc(std::string text) {
    const std::pair<const char*, std::string> lists[] = {{"{methods}", quoted_names<Method>()},
                                                         {"{patterns}", quoted_names<Pattern>()},
                                                         {"{orders}", quoted_names<RowOrder>()},
                                                         {"{formats}", quoted_names<Format>()},
                                                         {"{rules}", quoted_names<Rule>()}};
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

A request the library cannot serve (a combination without a function, a frame too
small for the method, a thread count out of range, buffers too small or overlapping)
raises ValueError with the library's message; arguments of the wrong kind raise
TypeError. Arrays are used in place, never copied. The GIL is released while the
library works.
)";

// The first line, up to "--", is the signature inspect.signature() reads.
const char kDemosaicDoc[] =
    R"(demosaic(raw, method='bilinear', pattern='RGGB', order='top-down', format='bgr24', threads=1, out=None, *, bits=None, dtype=None, rule='default')
--

Demosaics one raw frame and returns the image: a new array, or out filled.

raw
    The frame: a 2-D numpy array (height, width) of uint8 or uint16 samples. It is
    read in place: its rows may be padded (raw[:, :w] of a wider array), but each
    row must be one run of samples; other layouts are refused, not copied
    (numpy.ascontiguousarray makes a copy that is). uint16 samples must be aligned
    to 2 bytes.
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
    larger values are taken as the largest. Refused with uint8 samples.
dtype
    numpy.uint8 or numpy.uint16, the output elements (None: raw's, or out's). uint8
    from uint16 samples (general rule, not 'gbri') gives each element rounded from
    `bits` bits.
rule
    A qzrcfa.Rule or its name: {rules}. 'member' runs the
    library's member for the request, byte for byte with its exported function;
    'general' runs the method's general rule (every pattern, order and depth, the
    border computed as if the frame were mirrored about its edges); 'default' runs
    the member for uint8 samples and for uint16 ones where a member serves the
    request as it is, the general rule otherwise.

Raises ValueError with the library's message when it refuses the request (nothing is
written then), TypeError for arguments of the wrong type or dtype and for unknown
keywords, and ValueError for arrays of the wrong dimensions, shape or layout.
)";

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

    m.def("demosaic", &demosaic, doc(kDemosaicDoc).c_str());
    m.def("output_elements", &output_elements, kOutputElementsDoc);
    m.def("minimum_size", &minimum_size, kMinimumSizeDoc);
    m.def("processors", &qzrcfa_processors, "processors()\n--\n\nThreads a call with threads=0 uses.");
}
