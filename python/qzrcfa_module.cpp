// The Python module `qzrcfa`, over the checked C++ interface (qzrcfa.hpp) and the
// extended library.
//
// Every check on a request lives once, in the checked interface. This layer only
// translates: a numpy array becomes a view when its dtype, dimensions and layout say
// what the view needs (its data pointer and its real element count, so that the
// interface's size and overlap checks see the arrays as they are), a name becomes an
// enum value, and a refusal becomes a ValueError carrying the interface's message.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

#include "qzrcfa.hpp"

namespace py = pybind11;

namespace {

using qzrcfa::Format;
using qzrcfa::Method;
using qzrcfa::Pattern;
using qzrcfa::RowOrder;

std::string type_name(const py::handle& value) { return Py_TYPE(value.ptr())->tp_name; }

// An enum argument: the enum itself or one of the library's names for its values (any
// case, with or without '-', '_' and spaces; qzrcfa_names says them all).
template <class E>
E to_enum(const py::handle& value, const char* argument, const char* enum_name) {
    if (py::isinstance<E>(value)) return value.cast<E>();
    std::string names;
    for (int i = 0; const qzrcfa_name* n = qzrcfa_names(qzrcfa::detail::kNames<E>, i); ++i)
        names += std::string(names.empty() ? "'" : ", '") + n->name + "'";
    if (py::isinstance<py::str>(value)) {
        const std::string name = value.cast<std::string>();
        if (const std::optional<E> e = qzrcfa::from_string<E>(name)) return *e;
        throw py::value_error("unknown " + std::string(argument) + " '" + name + "' (one of " + names + ")");
    }
    throw py::type_error(std::string(argument) + " must be a qzrcfa." + enum_name + " or one of its names (" + names +
                         "), not " + type_name(value));
}

qzrcfa::Options to_options(const py::handle& method, const py::handle& pattern, const py::handle& order,
                           const py::handle& format) {
    return qzrcfa::Options{to_enum<Method>(method, "method", "Method"), to_enum<Pattern>(pattern, "pattern", "Pattern"),
                           to_enum<RowOrder>(order, "order", "RowOrder"), to_enum<Format>(format, "format", "Format"), 1};
}

// A whole-number argument as a C int; the interface judges its value.
int to_int(const py::handle& value, const char* argument) {
    if (!PyIndex_Check(value.ptr())) throw py::type_error(std::string(argument) + " must be an int, not " + type_name(value));
    PyObject* index = PyNumber_Index(value.ptr());
    if (index == nullptr) throw py::error_already_set();
    const py::object number = py::reinterpret_steal<py::object>(index);
    int overflow = 0;
    const long long v = PyLong_AsLongLongAndOverflow(number.ptr(), &overflow);
    if (overflow != 0 || v < INT_MIN || v > INT_MAX)
        throw py::value_error(std::string(argument) + " " + std::string(py::str(number)) + " does not fit a C int");
    return int(v);
}

// Bits per element of an array of uint8 or uint16 in the machine's byte order; 0 for
// anything else.
int depth_of(const py::array& a) {
    if (py::array_t<std::uint8_t>::check_(a)) return 8;
    if (py::array_t<std::uint16_t>::check_(a)) return 16;
    return 0;
}

std::string shape_of(const py::array& a) {
    std::string s = "(";
    for (py::ssize_t i = 0; i < a.ndim(); ++i) s += (i ? ", " : "") + std::to_string(a.shape(i));
    return s + (a.ndim() == 1 ? ",)" : ")");
}

// An argument that must be a C-contiguous numpy array of uint8 or uint16.
py::array to_array(const py::handle& value, const char* argument) {
    if (!py::isinstance<py::array>(value))
        throw py::type_error(std::string(argument) + " must be a numpy array of uint8 or uint16, not " + type_name(value));
    py::array a = py::reinterpret_borrow<py::array>(value);
    if (depth_of(a) == 0)
        throw py::type_error(std::string(argument) + " must hold uint8 or uint16 in the machine's byte order, not " +
                             py::str(a.dtype()).cast<std::string>());
    if (!(a.flags() & py::array::c_style))
        throw py::value_error(std::string(argument) + " must be C-contiguous (numpy.ascontiguousarray makes a copy that is)");
    return a;
}

qzrcfa::RawFrame raw_view(const py::array& a, int width, int height) {
    if (depth_of(a) == 8) return {static_cast<const std::uint8_t*>(a.data()), std::size_t(a.size()), width, height};
    return {static_cast<const std::uint16_t*>(a.data()), std::size_t(a.size()), width, height};
}

qzrcfa::OutputImage out_view(py::array& a) {
    if (depth_of(a) == 8) return {static_cast<std::uint8_t*>(a.mutable_data()), std::size_t(a.size())};
    return {static_cast<std::uint16_t*>(a.mutable_data()), std::size_t(a.size())};
}

template <class T>
py::array new_output(std::size_t elements, const std::vector<py::ssize_t>& shape, std::size_t image, Format format) {
    // The fourth element of bgra32 keeps what the buffer held where the method leaves
    // it: start opaque. Everything else starts at 0.
    py::array_t<T> buffer(elements == image ? py::array_t<T>(shape) : py::array_t<T>(py::ssize_t(elements)));
    std::memset(buffer.mutable_data(), format == Format::Bgra32 ? 0xFF : 0, elements * sizeof(T));
    return buffer;
}

py::array demosaic(const py::object& raw_arg, const py::object& method, const py::object& pattern, const py::object& order,
                   const py::object& format, const py::object& threads, const py::object& out_arg) {
    qzrcfa::Options options = to_options(method, pattern, order, format);
    options.threads = to_int(threads, "threads");
    const py::array raw = to_array(raw_arg, "raw");
    if (raw.ndim() != 2)
        throw py::value_error("raw must be 2-D (height, width), not " + std::to_string(raw.ndim()) + "-D with shape " + shape_of(raw));
    if (raw.shape(0) > INT_MAX || raw.shape(1) > INT_MAX)
        throw py::value_error("raw has shape " + shape_of(raw) + ": its height and width must each fit a C int");
    const int height = int(raw.shape(0)), width = int(raw.shape(1)), depth = depth_of(raw);
    const qzrcfa::RawFrame frame = raw_view(raw, width, height);

    const std::size_t per_pixel = options.format == Format::Grey ? 1 : options.format == Format::Bgra32 ? 4 : 3;
    std::vector<py::ssize_t> shape = {height, width};
    if (per_pixel > 1) shape.push_back(py::ssize_t(per_pixel));
    const std::size_t image = std::size_t(width) * std::size_t(height) * per_pixel;

    py::array out;
    if (out_arg.is_none()) {
        const std::size_t elements = qzrcfa::output_elements(width, height, options, depth);
        if (elements == 0) {  // refused whatever the buffers: say why
            const qzrcfa::Result r = depth == 8 ? qzrcfa::check(frame, {static_cast<std::uint8_t*>(nullptr), 0}, options)
                                                : qzrcfa::check(frame, {static_cast<std::uint16_t*>(nullptr), 0}, options);
            throw py::value_error(r ? std::string("refused") : r.message());
        }
        out = depth == 8 ? new_output<std::uint8_t>(elements, shape, image, options.format)
                         : new_output<std::uint16_t>(elements, shape, image, options.format);
    } else {
        out = to_array(out_arg, "out");
        if (!out.writeable()) throw py::value_error("out is read-only");
        const bool image_shaped = out.ndim() == py::ssize_t(shape.size()) && std::equal(shape.begin(), shape.end(), out.shape());
        if (!image_shaped && out.ndim() != 1) {
            std::string expected = "(" + std::to_string(height) + ", " + std::to_string(width);
            expected += per_pixel > 1 ? ", " + std::to_string(per_pixel) + ")" : ")";
            throw py::value_error("out has shape " + shape_of(out) + "; " + std::string(qzrcfa::to_string(options.format)) +
                                  " output of raw of shape " + shape_of(raw) + " takes " + expected +
                                  ", or a 1-D buffer of qzrcfa.output_elements() elements");
        }
    }

    const qzrcfa::OutputImage view = out_view(out);
    qzrcfa::Result result;
    {
        py::gil_scoped_release release;
        result = qzrcfa::demosaic(frame, view, options);
    }
    if (!result) throw py::value_error(result.message());
    if (out.ndim() == py::ssize_t(shape.size())) return out;
    // A flat buffer (given, or holding the slack some members write past the image):
    // the image is a view of its first elements.
    return py::array(out.dtype(), shape, {}, out.mutable_data(), out);
}

std::size_t output_elements(const py::object& width, const py::object& height, const py::object& method,
                            const py::object& pattern, const py::object& order, const py::object& format,
                            const py::object& depth) {
    return qzrcfa::output_elements(to_int(width, "width"), to_int(height, "height"),
                                   to_options(method, pattern, order, format), to_int(depth, "depth"));
}

py::tuple minimum_size(const py::object& method, const py::object& pattern, const py::object& order,
                       const py::object& format, const py::object& depth) {
    const qzrcfa::Size s = qzrcfa::minimum_size(to_options(method, pattern, order, format), to_int(depth, "depth"));
    return py::make_tuple(s.width, s.height);
}

// A Python enum of the library's values of a kind, each under its identifier, with its
// name and summary as its documentation.
template <class E>
void add_enum(py::module_& m, const char* name, const char* doc) {
    py::enum_<E> e(m, name, doc);
    for (int i = 0; const qzrcfa_name* n = qzrcfa_names(qzrcfa::detail::kNames<E>, i); ++i)
        e.value(n->identifier, E(n->value), (std::string("'") + n->name + "': " + n->summary).c_str());
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
TypeError. The GIL is released while the library works.
)";

const char kDemosaicDoc[] =
    R"(demosaic(raw, method='bilinear', pattern='RGGB', order='top-down', format='bgr24', threads=1, out=None) -> numpy.ndarray

Demosaics one raw frame and returns the image.

raw
    The frame: a 2-D numpy array (height, width) of uint8 or uint16 samples,
    C-contiguous (numpy.ascontiguousarray makes a copy that is). Nearest
    neighbour and gbri take 16-bit samples; they give 16-bit elements.
method
    A qzrcfa.Method or its name: 'nearest', 'bilinear', 'edge1', 'edge2',
    'laplacian', 'laplacian2', 'smoothhue' or 'gbri'. 'edge2' exists for RGGB
    only, 'laplacian2' for RGGB top-down only; 'gbri', the best colour, takes 8-
    and 16-bit samples, every pattern, order and colour format.
pattern
    A qzrcfa.Pattern or its name: the colours of the frame's top-left 2x2 tile,
    'RGGB', 'BGGR', 'GRBG' or 'GBRG'.
order
    A qzrcfa.RowOrder or its name: 'top-down', or 'bottom-up' for the members that
    write the image's rows from the last to the first (the _Flip functions; the
    frame is read top-down either way).
format
    A qzrcfa.Format or its name: 'bgr24' gives (height, width, 3) with blue, green,
    red; 'bgra32' gives (height, width, 4), the fourth element being what the method
    leaves there (in a new array, the largest value: opaque); 'grey' (nearest only)
    gives (height, width).
threads
    1 runs on the calling thread, exactly as a direct call of the library's function;
    0 uses every processor (qzrcfa.processors()); N up to 1024 uses up to N threads
    over bands of rows, with the same result. Small frames run on one thread.
out
    None for a new array, or an array to fill: writeable, C-contiguous, of raw's
    dtype, shaped as the result, or 1-D with at least qzrcfa.output_elements()
    elements (the bottom-up 16-bit grey members write 2 elements past the image,
    which an image-shaped array cannot hold). It must not overlap raw. Returned
    filled (a 1-D buffer as an image-shaped view of its first elements).

Raises ValueError with the library's message when it refuses the request (nothing is
written then), TypeError for arguments of the wrong type or dtype, and ValueError for
arrays of the wrong dimensions, shape or layout.
)";

}  // namespace

PYBIND11_MODULE(qzrcfa, m) {
    py::options docs;
    docs.disable_function_signatures();
    m.doc() = kModuleDoc;
    m.attr("__version__") = QZRCFA_VERSION;

    add_enum<Method>(m, "Method", "Interpolation methods; each also goes by its names ('nearest', 'bilinear', ...).");
    add_enum<Pattern>(m, "Pattern", "Colours of the frame's top-left 2x2 tile; also by name ('RGGB', ...).");
    add_enum<RowOrder>(m, "RowOrder", "Row order of the output; also by name ('top-down', 'bottom-up').");
    add_enum<Format>(m, "Format", "Output layout; also by name ('bgr24', 'bgra32', 'grey').");

    m.def("demosaic", &demosaic, kDemosaicDoc, py::arg("raw"), py::arg("method") = "bilinear", py::arg("pattern") = "RGGB",
          py::arg("order") = "top-down", py::arg("format") = "bgr24", py::arg("threads") = 1, py::arg("out") = py::none());
    m.def("output_elements", &output_elements,
          R"(output_elements(width, height, method='bilinear', pattern='RGGB', order='top-down', format='bgr24', depth=8) -> int

Elements an output buffer must hold for a width x height frame, the slack some members
write past the image included; 0 when demosaic() would refuse the request whatever the
buffers. depth is the bits per sample, 8 or 16.)",
          py::arg("width"), py::arg("height"), py::arg("method") = "bilinear", py::arg("pattern") = "RGGB",
          py::arg("order") = "top-down", py::arg("format") = "bgr24", py::arg("depth") = 8);
    m.def("minimum_size", &minimum_size,
          R"(minimum_size(method='bilinear', pattern='RGGB', order='top-down', format='bgr24', depth=8) -> (width, height)

Smallest frame the request accepts; (0, 0) when the combination has no function. A BGGR
colour frame of odd width needs at least 3 rows.)",
          py::arg("method") = "bilinear", py::arg("pattern") = "RGGB", py::arg("order") = "top-down",
          py::arg("format") = "bgr24", py::arg("depth") = 8);
    m.def("processors", &qzrcfa_processors, "processors() -> int\n\nThreads a call with threads=0 uses.");
}
