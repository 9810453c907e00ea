// qzrcfademosaic: a GStreamer element over the extended library.
//
// video/x-bayer in (8-bit rggb/bggr/grbg/gbrg, 16-bit *16le/*16be), video/x-raw out
// (BGRx, BGRA, BGR, GRAY8; GRAY16_LE and BGRA64_LE from 16-bit frames), width, height
// and framerate passed through. Each frame is one qzrcfa_demosaic call, so the element
// gives the bytes of a direct call of the method's export whatever its thread count.
//
// The library takes compact frames and writes compact images, GStreamer's buffers have
// strides: bayer rows are rounded up to 4 bytes (as rgb2bayer and bayer2rgb lay them
// out), video/x-raw rows as GstVideoInfo says. A padded or big-endian input is copied
// into a compact scratch first; the output goes straight into the downstream buffer when
// its rows are compact and it holds every element the member writes
// (qzrcfa_output_elements), else into a scratch whose rows are copied out.
//
// Four-element output (BGRx, BGRA, BGRA64_LE) starts opaque, all 0xFF, as the members
// that pre-fill leave it: the others keep element 3 as they find it, and some read it
// back (smooth hue's neighbour greens, the border fill's last pixel), so without a
// defined start a recycled buffer would change the picture. Every frame thus has the
// bytes of a direct call into an opaque buffer.
//
// Caps the library cannot serve (a method without a member for the pattern, depth or
// format, a size below the member's minimum) are refused at negotiation with a debug
// message saying why; a buffer smaller than its caps say is an element error.
#include <gst/base/gstbasetransform.h>
#include <gst/gst.h>
#include <gst/video/video.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "qzrcfa.hpp"
#include "qzrcfa_ext.h"

#define PACKAGE "qzrcfa"

GST_DEBUG_CATEGORY_STATIC(qzrcfa_debug);
#define GST_CAT_DEFAULT qzrcfa_debug

namespace {

struct BayerFormat {
    const char* name;
    int pattern;
    int depth;
    bool big_endian;
};

constexpr BayerFormat kBayerFormats[] = {
    {"rggb", QZRCFA_PATTERN_RGGB, 8, false},      {"bggr", QZRCFA_PATTERN_BGGR, 8, false},
    {"grbg", QZRCFA_PATTERN_GRBG, 8, false},      {"gbrg", QZRCFA_PATTERN_GBRG, 8, false},
    {"rggb16le", QZRCFA_PATTERN_RGGB, 16, false}, {"bggr16le", QZRCFA_PATTERN_BGGR, 16, false},
    {"grbg16le", QZRCFA_PATTERN_GRBG, 16, false}, {"gbrg16le", QZRCFA_PATTERN_GBRG, 16, false},
    {"rggb16be", QZRCFA_PATTERN_RGGB, 16, true},  {"bggr16be", QZRCFA_PATTERN_BGGR, 16, true},
    {"grbg16be", QZRCFA_PATTERN_GRBG, 16, true},  {"gbrg16be", QZRCFA_PATTERN_GBRG, 16, true},
};

struct RawFormat {
    const char* name;
    int format;  // QZRCFA_FORMAT_*
    int depth;   // bits per element
};

// In order of preference: the first that downstream accepts is chosen.
constexpr RawFormat kRawFormats[] = {
    {"BGRx", QZRCFA_FORMAT_BGRA32, 8},      {"BGRA", QZRCFA_FORMAT_BGRA32, 8},       {"BGR", QZRCFA_FORMAT_BGR24, 8},
    {"GRAY8", QZRCFA_FORMAT_GREY, 8},       {"BGRA64_LE", QZRCFA_FORMAT_BGRA32, 16}, {"GRAY16_LE", QZRCFA_FORMAT_GREY, 16},
};

const BayerFormat* find_bayer(const char* name) {
    for (const BayerFormat& f : kBayerFormats)
        if (name && std::strcmp(f.name, name) == 0) return &f;
    return nullptr;
}

const RawFormat* find_raw(const char* name) {
    for (const RawFormat& f : kRawFormats)
        if (name && std::strcmp(f.name, name) == 0) return &f;
    return nullptr;
}

qzrcfa_request make_request(const BayerFormat& in, const RawFormat& out, int method, int order, int width, int height) {
    qzrcfa_request q = QZRCFA_REQUEST_INIT;
    q.width = width;
    q.height = height;
    q.depth = in.depth;
    q.output_depth = out.depth;
    q.method = method;
    q.pattern = in.pattern;
    q.order = order;
    q.format = out.format;
    q.threads = 1;
    return q;
}

// Whether the library has a member for the pair at some size.
bool serves(const BayerFormat& in, const RawFormat& out, int method, int order) {
    if (in.depth != out.depth) return false;
    qzrcfa_request q = make_request(in, out, method, order, 0, 0);
    int w = 0, h = 0;
    qzrcfa_minimum_size(&q, &w, &h);
    return w > 0 && h > 0;
}

const char* method_nick(int method) {
    GEnumClass* c = static_cast<GEnumClass*>(g_type_class_peek(g_type_from_name("GstQzrcfaMethod")));
    GEnumValue* v = c ? g_enum_get_value(c, method) : nullptr;
    return v ? v->value_nick : "?";
}

}  // namespace

#define GST_TYPE_QZRCFA_DEMOSAIC (gst_qzrcfa_demosaic_get_type())
G_DECLARE_FINAL_TYPE(GstQzrcfaDemosaic, gst_qzrcfa_demosaic, GST, QZRCFA_DEMOSAIC, GstBaseTransform)

// What set_caps negotiated, and the scratch buffers, which only grow.
struct Negotiated {
    const BayerFormat* in = nullptr;
    const RawFormat* out = nullptr;
    int width = 0, height = 0;
    gsize in_stride = 0;
    GstVideoInfo out_info;
    std::vector<std::uint8_t> in_scratch, out_scratch;
};

struct _GstQzrcfaDemosaic {
    GstBaseTransform parent;
    // Properties, under the object lock.
    int method;
    int order;
    int threads;
    Negotiated* neg;
};

G_DEFINE_TYPE(GstQzrcfaDemosaic, gst_qzrcfa_demosaic, GST_TYPE_BASE_TRANSFORM)

enum { PROP_0, PROP_METHOD, PROP_THREADS, PROP_ROW_ORDER };

// An enumeration of the library's names of a kind: each value under its name, then
// under each alias, so that gst-launch-1.0 takes any spelling the library takes; the
// description is the label and summary.
static GType names_get_type(const char* type_name, int kind) {
    std::vector<GEnumValue> values;
    for (int i = 0; const qzrcfa_name* n = qzrcfa_names(kind, i); ++i) {
        const char* description = g_intern_string((std::string(n->label) + ": " + n->summary).c_str());
        values.push_back({n->value, description, n->name});
        std::string aliases = n->aliases;
        for (std::size_t at = 0; at < aliases.size();) {
            std::size_t end = aliases.find(',', at);
            if (end == std::string::npos) end = aliases.size();
            std::string alias = aliases.substr(at, end - at);
            alias.erase(0, alias.find_first_not_of(' '));
            if (!alias.empty()) values.push_back({n->value, description, g_intern_string(alias.c_str())});
            at = end + 1;
        }
    }
    values.push_back({0, nullptr, nullptr});
    auto* table = static_cast<GEnumValue*>(g_memdup2(values.data(), guint(values.size() * sizeof(GEnumValue))));
    return g_enum_register_static(type_name, table);
}

static GType method_get_type() {
    static GType type = 0;
    if (g_once_init_enter(&type)) g_once_init_leave(&type, names_get_type("GstQzrcfaMethod", QZRCFA_NAMES_METHOD));
    return type;
}

static GType row_order_get_type() {
    static GType type = 0;
    if (g_once_init_enter(&type)) g_once_init_leave(&type, names_get_type("GstQzrcfaRowOrder", QZRCFA_NAMES_ORDER));
    return type;
}

static void snapshot(GstQzrcfaDemosaic* self, int* method, int* order, int* threads) {
    GST_OBJECT_LOCK(self);
    *method = self->method;
    *order = self->order;
    if (threads) *threads = self->threads;
    GST_OBJECT_UNLOCK(self);
}

static void set_property(GObject* object, guint id, const GValue* value, GParamSpec* pspec) {
    GstQzrcfaDemosaic* self = GST_QZRCFA_DEMOSAIC(object);
    GST_OBJECT_LOCK(self);
    switch (id) {
    case PROP_METHOD: self->method = g_value_get_enum(value); break;
    case PROP_ROW_ORDER: self->order = g_value_get_enum(value); break;
    case PROP_THREADS: self->threads = g_value_get_int(value); break;
    default: G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec); break;
    }
    GST_OBJECT_UNLOCK(self);
    // Method and row order decide which caps can be served.
    if (id == PROP_METHOD || id == PROP_ROW_ORDER) gst_base_transform_reconfigure_src(GST_BASE_TRANSFORM(self));
}

static void get_property(GObject* object, guint id, GValue* value, GParamSpec* pspec) {
    GstQzrcfaDemosaic* self = GST_QZRCFA_DEMOSAIC(object);
    GST_OBJECT_LOCK(self);
    switch (id) {
    case PROP_METHOD: g_value_set_enum(value, self->method); break;
    case PROP_ROW_ORDER: g_value_set_enum(value, self->order); break;
    case PROP_THREADS: g_value_set_int(value, self->threads); break;
    default: G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec); break;
    }
    GST_OBJECT_UNLOCK(self);
}

// The format names a structure allows: its "format" field (a string or a list), or
// every name of the table when it has none.
template <typename Format, std::size_t N>
static std::vector<const Format*> formats_of(const GstStructure* s, const Format (&table)[N],
                                             const Format* (*find)(const char*)) {
    std::vector<const Format*> found;
    const GValue* v = gst_structure_get_value(s, "format");
    if (v == nullptr) {
        for (const Format& f : table) found.push_back(&f);
    } else if (G_VALUE_HOLDS_STRING(v)) {
        if (const Format* f = find(g_value_get_string(v))) found.push_back(f);
    } else if (GST_VALUE_HOLDS_LIST(v)) {
        for (guint i = 0; i < gst_value_list_get_size(v); ++i) {
            const GValue* e = gst_value_list_get_value(v, i);
            if (G_VALUE_HOLDS_STRING(e))
                if (const Format* f = find(g_value_get_string(e))) found.push_back(f);
        }
    }
    return found;
}

static void set_formats(GstStructure* s, const std::vector<const char*>& names) {
    if (names.size() == 1) {
        gst_structure_set(s, "format", G_TYPE_STRING, names[0], nullptr);
        return;
    }
    GValue list = G_VALUE_INIT, item = G_VALUE_INIT;
    g_value_init(&list, GST_TYPE_LIST);
    g_value_init(&item, G_TYPE_STRING);
    for (const char* n : names) {
        g_value_set_static_string(&item, n);
        gst_value_list_append_value(&list, &item);
    }
    gst_structure_take_value(s, "format", &list);
    g_value_unset(&item);
}

// Bayer caps to the raw formats the method can make from them, and raw caps to the
// bayer formats it can make them from; size and rate pass through unchanged.
static GstCaps* transform_caps(GstBaseTransform* trans, GstPadDirection direction, GstCaps* caps, GstCaps* filter) {
    GstQzrcfaDemosaic* self = GST_QZRCFA_DEMOSAIC(trans);
    int method, order;
    snapshot(self, &method, &order, nullptr);
    GstCaps* result = gst_caps_new_empty();
    for (guint i = 0; i < gst_caps_get_size(caps); ++i) {
        const GstStructure* s = gst_caps_get_structure(caps, i);
        std::vector<const char*> names;
        if (direction == GST_PAD_SINK) {
            if (!gst_structure_has_name(s, "video/x-bayer")) continue;
            for (const RawFormat& out : kRawFormats)
                for (const BayerFormat* in : formats_of(s, kBayerFormats, find_bayer))
                    if (serves(*in, out, method, order)) {
                        names.push_back(out.name);
                        break;
                    }
        } else {
            if (!gst_structure_has_name(s, "video/x-raw")) continue;
            for (const BayerFormat& in : kBayerFormats)
                for (const RawFormat* out : formats_of(s, kRawFormats, find_raw))
                    if (serves(in, *out, method, order)) {
                        names.push_back(in.name);
                        break;
                    }
        }
        if (names.empty()) {
            gchar* text = gst_structure_to_string(s);
            GST_DEBUG_OBJECT(self, "method %s (%s) has nothing to convert %s %s", method_nick(method),
                             order == QZRCFA_ORDER_TOP_DOWN ? "top-down" : "bottom-up",
                             direction == GST_PAD_SINK ? "from" : "into", text);
            g_free(text);
            continue;
        }
        GstStructure* o = gst_structure_new_empty(direction == GST_PAD_SINK ? "video/x-raw" : "video/x-bayer");
        set_formats(o, names);
        for (const char* field : {"width", "height", "framerate", "pixel-aspect-ratio"})
            if (const GValue* v = gst_structure_get_value(s, field)) gst_structure_set_value(o, field, v);
        result = gst_caps_merge_structure(result, o);
    }
    if (filter) {
        GstCaps* both = gst_caps_intersect_full(filter, result, GST_CAPS_INTERSECT_FIRST);
        if (gst_caps_is_empty(both) && !gst_caps_is_empty(result))
            GST_DEBUG_OBJECT(self, "method %s (%s) makes nothing that fits %" GST_PTR_FORMAT " of %" GST_PTR_FORMAT,
                             method_nick(method), order == QZRCFA_ORDER_TOP_DOWN ? "top-down" : "bottom-up", filter, caps);
        gst_caps_unref(result);
        result = both;
    }
    GST_DEBUG_OBJECT(self, "%" GST_PTR_FORMAT " -> %" GST_PTR_FORMAT, caps, result);
    return result;
}

// The other side takes this side's size and rate where it may, then its first choice.
static GstCaps* fixate_caps(GstBaseTransform* trans, GstPadDirection, GstCaps* caps, GstCaps* othercaps) {
    othercaps = gst_caps_truncate(gst_caps_make_writable(othercaps));
    GstStructure* o = gst_caps_get_structure(othercaps, 0);
    const GstStructure* s = gst_caps_get_structure(caps, 0);
    int v = 0, n = 0, d = 1;
    if (gst_structure_get_int(s, "width", &v)) gst_structure_fixate_field_nearest_int(o, "width", v);
    if (gst_structure_get_int(s, "height", &v)) gst_structure_fixate_field_nearest_int(o, "height", v);
    if (gst_structure_get_fraction(s, "framerate", &n, &d))
        gst_structure_fixate_field_nearest_fraction(o, "framerate", n, d);
    othercaps = gst_caps_fixate(othercaps);
    GST_DEBUG_OBJECT(trans, "fixated to %" GST_PTR_FORMAT, othercaps);
    return othercaps;
}

static gboolean set_caps(GstBaseTransform* trans, GstCaps* incaps, GstCaps* outcaps) {
    GstQzrcfaDemosaic* self = GST_QZRCFA_DEMOSAIC(trans);
    Negotiated& neg = *self->neg;
    const GstStructure* s = gst_caps_get_structure(incaps, 0);
    const BayerFormat* in = find_bayer(gst_structure_get_string(s, "format"));
    int width = 0, height = 0;
    GstVideoInfo info;
    if (!in || !gst_structure_get_int(s, "width", &width) || !gst_structure_get_int(s, "height", &height) ||
        !gst_video_info_from_caps(&info, outcaps)) {
        GST_WARNING_OBJECT(self, "cannot read the caps %" GST_PTR_FORMAT " -> %" GST_PTR_FORMAT, incaps, outcaps);
        return FALSE;
    }
    const RawFormat* out = find_raw(gst_video_format_to_string(GST_VIDEO_INFO_FORMAT(&info)));
    if (!out || int(GST_VIDEO_INFO_WIDTH(&info)) != width || int(GST_VIDEO_INFO_HEIGHT(&info)) != height) {
        GST_WARNING_OBJECT(self, "cannot convert %" GST_PTR_FORMAT " into %" GST_PTR_FORMAT, incaps, outcaps);
        return FALSE;
    }
    int method, order;
    snapshot(self, &method, &order, nullptr);
    qzrcfa_request q = make_request(*in, *out, method, order, width, height);
    if (qzrcfa_output_elements(&q) == 0) {
        char why[256];
        qzrcfa_check(&q, why, sizeof why);
        GST_WARNING_OBJECT(self, "method %s cannot convert %s %dx%d into %s: %s", method_nick(method), in->name, width,
                           height, out->name, why);
        return FALSE;
    }
    neg.in = in;
    neg.out = out;
    neg.width = width;
    neg.height = height;
    neg.in_stride = GST_ROUND_UP_4(gsize(width) * (in->depth / 8));
    neg.out_info = info;
    GST_DEBUG_OBJECT(self, "%s %dx%d (stride %" G_GSIZE_FORMAT ") -> %s (stride %d) by %s", in->name, width, height,
                     neg.in_stride, out->name, GST_VIDEO_INFO_PLANE_STRIDE(&info, 0), method_nick(method));
    return TRUE;
}

static gboolean get_unit_size(GstBaseTransform* trans, GstCaps* caps, gsize* size) {
    const GstStructure* s = gst_caps_get_structure(caps, 0);
    int width = 0, height = 0;
    if (gst_structure_has_name(s, "video/x-bayer")) {
        const BayerFormat* f = find_bayer(gst_structure_get_string(s, "format"));
        if (!f || !gst_structure_get_int(s, "width", &width) || !gst_structure_get_int(s, "height", &height))
            return FALSE;
        *size = GST_ROUND_UP_4(gsize(width) * (f->depth / 8)) * gsize(height);
        return TRUE;
    }
    GstVideoInfo info;
    if (!gst_video_info_from_caps(&info, caps)) return FALSE;
    *size = GST_VIDEO_INFO_SIZE(&info);
    (void)trans;
    return TRUE;
}

// Output buffers from a pool when downstream offers none: a new 48 MB buffer per 4000 x
// 3000 frame would fault in every page of it again, which costs as much as the
// demosaicing.
static gboolean decide_allocation(GstBaseTransform* trans, GstQuery* query) {
    if (gst_query_get_n_allocation_pools(query) == 0) {
        GstCaps* caps = nullptr;
        gst_query_parse_allocation(query, &caps, nullptr);
        GstVideoInfo info;
        if (caps && gst_video_info_from_caps(&info, caps)) {
            GstBufferPool* pool = gst_video_buffer_pool_new();
            gst_query_add_allocation_pool(query, pool, guint(GST_VIDEO_INFO_SIZE(&info)), 0, 0);
            gst_object_unref(pool);
        }
    }
    return GST_BASE_TRANSFORM_CLASS(gst_qzrcfa_demosaic_parent_class)->decide_allocation(trans, query);
}

// Scratch of at least `bytes`; false when there is no memory for it.
static bool grow(std::vector<std::uint8_t>& scratch, std::size_t bytes) {
    try {
        if (scratch.size() < bytes) scratch.resize(bytes);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

static GstFlowReturn transform(GstBaseTransform* trans, GstBuffer* inbuf, GstBuffer* outbuf) {
    GstQzrcfaDemosaic* self = GST_QZRCFA_DEMOSAIC(trans);
    Negotiated& neg = *self->neg;
    if (!neg.in) {
        GST_ELEMENT_ERROR(self, CORE, NEGOTIATION, (nullptr), ("a buffer came before the caps"));
        return GST_FLOW_NOT_NEGOTIATED;
    }
    int method, order, threads;
    snapshot(self, &method, &order, &threads);
    qzrcfa_request q = make_request(*neg.in, *neg.out, method, order, neg.width, neg.height);
    q.threads = threads;
    const std::size_t need = qzrcfa_output_elements(&q);
    if (need == 0) {
        char why[256];
        qzrcfa_check(&q, why, sizeof why);
        GST_ELEMENT_ERROR(self, CORE, NEGOTIATION, (nullptr), ("method %s: %s", method_nick(method), why));
        return GST_FLOW_NOT_NEGOTIATED;
    }

    const gsize sample_bytes = neg.in->depth / 8;
    const gsize in_row = gsize(neg.width) * sample_bytes;
    const gsize in_size = neg.in_stride * gsize(neg.height);
    GstMapInfo in_map;
    if (!gst_buffer_map(inbuf, &in_map, GST_MAP_READ)) {
        GST_ELEMENT_ERROR(self, RESOURCE, READ, (nullptr), ("cannot map the input buffer"));
        return GST_FLOW_ERROR;
    }
    if (in_map.size < in_size) {
        GST_ELEMENT_ERROR(self, STREAM, FORMAT, (nullptr),
                          ("input buffer of %" G_GSIZE_FORMAT " bytes is smaller than the %" G_GSIZE_FORMAT
                           " bytes of a %dx%d %s frame",
                           in_map.size, in_size, neg.width, neg.height, neg.in->name));
        gst_buffer_unmap(inbuf, &in_map);
        return GST_FLOW_ERROR;
    }
    const bool swap = neg.in->big_endian != (G_BYTE_ORDER == G_BIG_ENDIAN);
    const std::uint8_t* samples = in_map.data;
    if (swap || neg.in_stride != in_row) {
        if (!grow(neg.in_scratch, in_row * gsize(neg.height))) {
            gst_buffer_unmap(inbuf, &in_map);
            GST_ELEMENT_ERROR(self, RESOURCE, NO_SPACE_LEFT, (nullptr), ("no memory for a compact copy of the frame"));
            return GST_FLOW_ERROR;
        }
        for (int y = 0; y < neg.height; ++y) {
            const std::uint8_t* from = in_map.data + gsize(y) * neg.in_stride;
            std::uint8_t* to = neg.in_scratch.data() + gsize(y) * in_row;
            if (!swap) {
                std::memcpy(to, from, in_row);
                continue;
            }
            for (gsize x = 0; x < in_row; x += 2) {
                to[x] = from[x + 1];
                to[x + 1] = from[x];
            }
        }
        samples = neg.in_scratch.data();
    }

    GstVideoFrame frame;
    if (!gst_video_frame_map(&frame, &neg.out_info, outbuf, GST_MAP_WRITE)) {
        gst_buffer_unmap(inbuf, &in_map);
        GST_ELEMENT_ERROR(self, RESOURCE, WRITE, (nullptr), ("cannot map the output buffer"));
        return GST_FLOW_ERROR;
    }
    const gsize element_bytes = neg.out->depth / 8;
    const gsize out_row = gsize(GST_VIDEO_FRAME_COMP_PSTRIDE(&frame, 0)) * gsize(neg.width);
    const gsize out_stride = gsize(GST_VIDEO_FRAME_PLANE_STRIDE(&frame, 0));
    const gsize out_room = frame.map[0].size - GST_VIDEO_FRAME_PLANE_OFFSET(&frame, 0);
    auto* plane = static_cast<std::uint8_t*>(GST_VIDEO_FRAME_PLANE_DATA(&frame, 0));
    const bool direct = out_stride == out_row && need * element_bytes <= out_room;
    std::uint8_t* target = plane;
    if (!direct) {
        if (!grow(neg.out_scratch, need * element_bytes)) {
            gst_video_frame_unmap(&frame);
            gst_buffer_unmap(inbuf, &in_map);
            GST_ELEMENT_ERROR(self, RESOURCE, NO_SPACE_LEFT, (nullptr), ("no memory for the image before its rows are copied out"));
            return GST_FLOW_ERROR;
        }
        target = neg.out_scratch.data();
    }
    if (qzrcfa_output_defined(&q) == 0) std::memset(target, 0xFF, out_row * gsize(neg.height));

    q.samples = samples;
    q.samples_bytes = gsize(neg.width) * gsize(neg.height) * sample_bytes;
    q.output = target;
    q.output_bytes = need * element_bytes;
    char why[256];
    const int status = qzrcfa_demosaic(&q, why, sizeof why);
    if (status == 0 && !direct)
        for (int y = 0; y < neg.height; ++y)
            std::memcpy(plane + gsize(y) * out_stride, target + gsize(y) * out_row, out_row);
    gst_video_frame_unmap(&frame);
    gst_buffer_unmap(inbuf, &in_map);
    if (status != 0) {
        GST_ELEMENT_ERROR(self, STREAM, FAILED, (nullptr), ("demosaicing refused: %s", why));
        return GST_FLOW_ERROR;
    }
    return GST_FLOW_OK;
}

static gboolean stop(GstBaseTransform* trans) {
    Negotiated& neg = *GST_QZRCFA_DEMOSAIC(trans)->neg;
    neg.in = nullptr;
    neg.out = nullptr;
    std::vector<std::uint8_t>().swap(neg.in_scratch);
    std::vector<std::uint8_t>().swap(neg.out_scratch);
    return TRUE;
}

static void finalize(GObject* object) {
    delete GST_QZRCFA_DEMOSAIC(object)->neg;
    G_OBJECT_CLASS(gst_qzrcfa_demosaic_parent_class)->finalize(object);
}

static void gst_qzrcfa_demosaic_init(GstQzrcfaDemosaic* self) {
    self->method = QZRCFA_METHOD_BILINEAR;
    self->order = QZRCFA_ORDER_TOP_DOWN;
    self->threads = 0;
    self->neg = new Negotiated();
}

static GstCaps* template_caps(bool bayer) {
    std::string text = bayer ? "video/x-bayer, format=(string){" : "video/x-raw, format=(string){";
    bool first = true;
    auto add = [&](const char* name) {
        text += (first ? " " : ", ") + std::string(name);
        first = false;
    };
    if (bayer)
        for (const BayerFormat& f : kBayerFormats) add(f.name);
    else
        for (const RawFormat& f : kRawFormats) add(f.name);
    text += " }, width=(int)[ 1, max ], height=(int)[ 1, max ], framerate=(fraction)[ 0/1, max ]";
    return gst_caps_from_string(text.c_str());
}

static void gst_qzrcfa_demosaic_class_init(GstQzrcfaDemosaicClass* klass) {
    GObjectClass* object = G_OBJECT_CLASS(klass);
    GstElementClass* element = GST_ELEMENT_CLASS(klass);
    GstBaseTransformClass* base = GST_BASE_TRANSFORM_CLASS(klass);
    object->set_property = set_property;
    object->get_property = get_property;
    object->finalize = finalize;

    g_object_class_install_property(
        object, PROP_METHOD,
        g_param_spec_enum("method", "Method",
                          "Demosaicing method; negotiation offers only the formats it has a member for "
                          "(16-bit frames: nearest and gbri; grey output: nearest)",
                          method_get_type(), QZRCFA_METHOD_BILINEAR,
                          GParamFlags(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS | GST_PARAM_MUTABLE_PLAYING)));
    g_object_class_install_property(
        object, PROP_THREADS,
        g_param_spec_int("threads", "Threads",
                         "Threads per frame: 0 for every processor, 1 for the streaming thread alone, N for up to N; "
                         "every count gives the same bytes",
                         0, 1024, 0, GParamFlags(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS | GST_PARAM_MUTABLE_PLAYING)));
    g_object_class_install_property(
        object, PROP_ROW_ORDER,
        g_param_spec_enum("row-order", "Row order",
                          "Order of the output rows: bottom-up hands the image last row first to a consumer that "
                          "stores it so (laplacian-2 is top-down only)",
                          row_order_get_type(), QZRCFA_ORDER_TOP_DOWN,
                          GParamFlags(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS | GST_PARAM_MUTABLE_PLAYING)));

    gst_element_class_set_static_metadata(element, "Bayer demosaicing (qzrcfa)", "Filter/Converter/Video",
                                          "Converts Bayer frames to BGR, BGRx, BGRA or grey with the qzrcfa methods",
                                          "qzrcfa developers");
    GstCaps* sink = template_caps(true);
    GstCaps* src = template_caps(false);
    gst_element_class_add_pad_template(element, gst_pad_template_new("sink", GST_PAD_SINK, GST_PAD_ALWAYS, sink));
    gst_element_class_add_pad_template(element, gst_pad_template_new("src", GST_PAD_SRC, GST_PAD_ALWAYS, src));
    gst_caps_unref(sink);
    gst_caps_unref(src);

    base->transform_caps = transform_caps;
    base->fixate_caps = fixate_caps;
    base->set_caps = set_caps;
    base->get_unit_size = get_unit_size;
    base->transform = transform;
    base->decide_allocation = decide_allocation;
    base->stop = stop;
    base->passthrough_on_same_caps = FALSE;

    gst_type_mark_as_plugin_api(method_get_type(), GstPluginAPIFlags(0));
    gst_type_mark_as_plugin_api(row_order_get_type(), GstPluginAPIFlags(0));
}

static gboolean plugin_init(GstPlugin* plugin) {
    GST_DEBUG_CATEGORY_INIT(qzrcfa_debug, "qzrcfademosaic", 0, "qzrcfa Bayer demosaicing");
    return gst_element_register(plugin, "qzrcfademosaic", GST_RANK_NONE, GST_TYPE_QZRCFA_DEMOSAIC);
}

GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, qzrcfa, "Bayer demosaicing with the qzrcfa library", plugin_init,
                  QZRCFA_VERSION, "unknown", "qzrcfa", "qzrcfa")
