// qzrcfademosaic: a GStreamer element over the extended library.
//
// video/x-bayer in: 8-bit rggb/bggr/grbg/gbrg, and the 16-bit containers *10le, *12le,
// *14le, *16le (the significant bits from the name) and *16be. video/x-raw out: BGRx,
// BGRA, BGR and GRAY8 (8-bit elements, from 16-bit frames rounded from the frame's bits
// in the same pass), GRAY16_LE and BGRA64_LE (16-bit elements, from 16-bit frames).
// Width, height and framerate pass through. Each frame is one qzrcfa_demosaic call, so
// the element gives the bytes of a direct call whatever its thread count. The `rule`
// property chooses between the interface's members and each method's general rule;
// by default 8-bit frames take the member, 16-bit frames the member where one serves
// them and the general rule otherwise.
//
// Rows stay where GStreamer put them: bayer rows rounded up to 4 bytes (as rgb2bayer
// and bayer2rgb lay them out) and the output plane's stride go to the library as the
// request's strides. A copy is made only where the library cannot read or write the
// buffer as it is: big-endian (or odd-aligned 16-bit) samples go through a compact
// scratch, and an image goes through one when the plane is too small for what the
// member writes (the bottom-up 16-bit grey members write 2 elements past the image).
//
// Four-element output (BGRx, BGRA, BGRA64_LE) starts opaque, all 0xFF, where the
// request leaves element 3 as it finds it (qzrcfa_output_defined): some members read
// it back (smooth hue's neighbour greens, the border fill's last pixel), so without a
// defined start a recycled buffer would change the picture. Every frame thus has the
// bytes of a direct call into an opaque buffer.
//
// A raw frame becomes a picture in the same call: `black-level`, `wb-gains`,
// `color-matrix` and `curve` go into the request (any of them runs the general rule),
// and `wb-auto` measures the gains with the library's grey world on the first frame
// or every N frames and keeps them in between. The gains each frame used are the
// read-only `wb-gains-used`, in the text `wb-gains` takes. A property value the
// element or the library refuses is not taken: the property keeps what it had, and one
// warning goes on the bus (when the element starts, if it was set before). A black
// level at or above 2^bits of the frame is refused with the caps, or, set while
// playing, leaves the frames with the settings they had; a frame in which grey world
// finds no gains keeps the gains in use, with one warning.
//
// Caps the library cannot serve (a method without a member for the pattern, depth or
// format, a size below the minimum, an image too large for the members) are refused at
// negotiation with the library's reason, posted once per distinct reason and run as a
// warning on the bus and written to the debug log; a buffer smaller than its caps say
// is an element error.
#include <gst/base/gstbasetransform.h>
#include <gst/gst.h>
#include <gst/video/video.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <new>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "qzrcfa_ext.h"

#define PACKAGE "qzrcfa"

GST_DEBUG_CATEGORY_STATIC(qzrcfa_debug);
#define GST_CAT_DEFAULT qzrcfa_debug

namespace {

struct BayerFormat {
    std::string name;
    int pattern;
    int depth;  // bits per sample in the buffer: 8 or 16
    int bits;   // significant bits of 16-bit samples; 0 for 8-bit ones
    bool big_endian;
};

// Every pattern in every container, in the order the pad template lists them.
const std::vector<BayerFormat>& bayer_formats() {
    static const std::vector<BayerFormat> formats = [] {
        struct Container {
            const char* suffix;
            int depth, bits;
            bool big_endian;
        };
        const Container containers[] = {{"", 8, 0, false},       {"10le", 16, 10, false}, {"12le", 16, 12, false},
                                        {"14le", 16, 14, false}, {"16le", 16, 16, false}, {"16be", 16, 16, true}};
        const std::pair<const char*, int> patterns[] = {{"rggb", QZRCFA_PATTERN_RGGB},
                                                        {"bggr", QZRCFA_PATTERN_BGGR},
                                                        {"grbg", QZRCFA_PATTERN_GRBG},
                                                        {"gbrg", QZRCFA_PATTERN_GBRG}};
        std::vector<BayerFormat> all;
        for (const Container& c : containers)
            for (const auto& [name, pattern] : patterns)
                all.push_back({std::string(name) + c.suffix, pattern, c.depth, c.bits, c.big_endian});
        return all;
    }();
    return formats;
}

struct RawFormat {
    const char* name;
    int format;  // QZRCFA_FORMAT_*
    int depth;   // bits per element
};

// In order of preference: the first that downstream accepts is chosen. 8-bit first for
// 16-bit frames too: rounded from the frame's bits, they show as they should, where
// 16-bit elements of a 10-bit frame hold values up to 1023.
const std::vector<RawFormat>& raw_formats() {
    static const std::vector<RawFormat> formats = {
        {"BGRx", QZRCFA_FORMAT_BGRA32, 8},      {"BGRA", QZRCFA_FORMAT_BGRA32, 8},       {"BGR", QZRCFA_FORMAT_BGR24, 8},
        {"GRAY8", QZRCFA_FORMAT_GREY, 8},       {"BGRA64_LE", QZRCFA_FORMAT_BGRA32, 16}, {"GRAY16_LE", QZRCFA_FORMAT_GREY, 16},
    };
    return formats;
}

template <typename Format>
const Format* find_format(const std::vector<Format>& table, const char* name) {
    for (const Format& f : table)
        if (name && f.name == std::string_view(name)) return &f;
    return nullptr;
}

const BayerFormat* find_bayer(const char* name) { return find_format(bayer_formats(), name); }
const RawFormat* find_raw(const char* name) { return find_format(raw_formats(), name); }

// What a request carries beyond the method: black level, white-balance gains, colour
// matrix and curve; all zero, nothing.
struct Picture {
    std::array<int, 4> black{};
    std::array<float, 3> gains{};
    std::array<float, 9> matrix{};
    int curve = QZRCFA_CURVE_LINEAR;
    float gamma = 0;  // with the gamma curve only
};

// What the properties choose, read once per negotiation or frame.
struct Choice {
    int method, order, rule, threads;
    Picture picture;
};

void set_picture(qzrcfa_request& q, const Picture& p) {
    std::copy(p.black.begin(), p.black.end(), q.black);
    std::copy(p.gains.begin(), p.gains.end(), q.gains);
    std::copy(p.matrix.begin(), p.matrix.end(), q.matrix);
    q.curve = p.curve;
    q.gamma = p.gamma;
}

void set_picture_of(Picture& p, const qzrcfa_request& q) {
    std::copy(q.black, q.black + 4, p.black.begin());
    std::copy(q.gains, q.gains + 3, p.gains.begin());
    std::copy(q.matrix, q.matrix + 9, p.matrix.begin());
    p.curve = q.curve;
    p.gamma = q.gamma;
}

qzrcfa_request make_request(const BayerFormat& in, const RawFormat& out, const Choice& c, int width, int height) {
    qzrcfa_request q = QZRCFA_REQUEST_INIT;
    q.width = width;
    q.height = height;
    q.depth = in.depth;
    q.bits = in.bits;
    q.output_depth = out.depth;
    q.method = c.method;
    q.pattern = in.pattern;
    q.order = c.order;
    q.format = out.format;
    q.threads = 1;
    q.rule = c.rule;
    set_picture(q, c.picture);
    return q;
}

// Whether the library serves the pair at some size.
bool serves(const BayerFormat& in, const RawFormat& out, const Choice& c) {
    qzrcfa_request q = make_request(in, out, c, 0, 0);
    int w = 0, h = 0;
    qzrcfa_minimum_size(&q, &w, &h);
    return w > 0 && h > 0;
}

// The library's reason for refusing a request.
std::string reason(const qzrcfa_request& q) {
    char why[512];
    qzrcfa_check(&q, why, sizeof why);
    return why;
}

const char* name_of(int kind, int value) {
    for (int i = 0; const qzrcfa_name* n = qzrcfa_names(kind, i); ++i)
        if (n->value == value) return n->name;
    return "?";
}

// "method bilinear" or "method edge2, rule general": what a refusal was asked of.
std::string asked(const Choice& c) {
    std::string text = std::string("method ") + name_of(QZRCFA_NAMES_METHOD, c.method);
    if (c.rule == QZRCFA_RULE_MEMBER) text += ", rule member";
    if (c.rule == QZRCFA_RULE_GENERAL) text += ", rule general";
    return text;
}

// The numbers of a comma-separated text, spaces around each allowed, each read whole in
// C's notation whatever the locale ("1.5", "-0.25", "2e-1"); nothing when any is not a
// number of T.
template <typename T>
std::optional<std::vector<T>> numbers(std::string_view text) {
    std::vector<T> found;
    for (std::size_t at = 0; at <= text.size();) {
        std::size_t end = text.find(',', at);
        if (end == std::string_view::npos) end = text.size();
        std::string_view item = text.substr(at, end - at);
        while (!item.empty() && item.front() == ' ') item.remove_prefix(1);
        while (!item.empty() && item.back() == ' ') item.remove_suffix(1);
        T v{};
        const auto [last, error] = std::from_chars(item.data(), item.data() + item.size(), v);
        if (item.empty() || error != std::errc() || last != item.data() + item.size()) return std::nullopt;
        found.push_back(v);
        at = end + 1;
    }
    return found;
}

// "1.9,1,1.6": the gains in the text wb-gains takes, each the shortest that reads back
// as the same float.
std::string text_of(const float* gains) {
    std::string text;
    for (int i = 0; i < 3; ++i) {
        char digits[32];
        const auto end = std::to_chars(digits, digits + sizeof digits, gains[i]).ptr;
        if (i) text += ',';
        text.append(digits, end);
    }
    return text;
}

// The library's reason for refusing the picture in every frame ("" when it takes it in
// some): judged with a 16-bit frame of 16 bits and colour output.
std::string refused(const Picture& p) {
    qzrcfa_request q = QZRCFA_REQUEST_INIT;
    q.depth = 16;
    q.method = QZRCFA_METHOD_BILINEAR;
    q.format = QZRCFA_FORMAT_BGR24;
    q.rule = QZRCFA_RULE_GENERAL;
    set_picture(q, p);
    int w = 0, h = 0;
    qzrcfa_minimum_size(&q, &w, &h);
    return w > 0 ? std::string() : reason(q);
}

}  // namespace

#define GST_TYPE_QZRCFA_DEMOSAIC (gst_qzrcfa_demosaic_get_type())
G_DECLARE_FINAL_TYPE(GstQzrcfaDemosaic, gst_qzrcfa_demosaic, GST, QZRCFA_DEMOSAIC, GstBaseTransform)

// What set_caps negotiated, the scratch buffers, which only grow, and the refusals
// already posted.
struct Negotiated {
    const BayerFormat* in = nullptr;
    const RawFormat* out = nullptr;
    int width = 0, height = 0;
    gsize in_stride = 0;
    GstVideoInfo out_info;
    std::vector<std::uint8_t> in_scratch, out_scratch;
    std::string what;  // "rggb 64x48 into BGRx"
    Picture applied;   // the black level, gains, matrix and curve of the last frame
    std::string path;  // how the last frame's rows went, logged when it changes
    std::mutex told_mutex;
    std::set<std::string> told;
    bool running = false;               // between start and stop
    std::vector<std::string> pending;   // properties refused before the element started
};

enum { WB_OFF = 0, WB_FIRST = 1, WB_EVERY = 2 };

// The picture properties as set, and the white balance of the frames.
struct Settings {
    std::string black, gains, matrix;  // the texts of the properties ("": none)
    Picture picture;                   // their values, and the curve (its gamma below)
    double gamma = 2.2;
    int wb_auto = WB_OFF;
    guint wb_interval = 30;
    // Automatic white balance since it was last started: frames, and the gains grey world
    // found; `generation` counts the restarts, so a frame measured before one keeps its
    // gains to itself.
    guint64 frames = 0;
    unsigned generation = 0;
    bool measured = false;
    std::array<float, 3> measured_gains{};
    std::array<float, 3> used{1, 1, 1};  // what the last frame applied
};

struct _GstQzrcfaDemosaic {
    GstBaseTransform parent;
    // Properties, under the object lock.
    int method;
    int order;
    int rule;
    int threads;
    Settings* settings;
    Negotiated* neg;
};

G_DEFINE_TYPE(GstQzrcfaDemosaic, gst_qzrcfa_demosaic, GST_TYPE_BASE_TRANSFORM)

enum {
    PROP_0,
    PROP_METHOD,
    PROP_THREADS,
    PROP_ROW_ORDER,
    PROP_RULE,
    PROP_BLACK_LEVEL,
    PROP_WB_GAINS,
    PROP_WB_AUTO,
    PROP_WB_AUTO_INTERVAL,
    PROP_WB_GAINS_USED,
    PROP_COLOR_MATRIX,
    PROP_CURVE,
    PROP_GAMMA
};

static GParamSpec* gains_used_property;

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

static GType rule_get_type() {
    static GType type = 0;
    if (g_once_init_enter(&type)) g_once_init_leave(&type, names_get_type("GstQzrcfaRule", QZRCFA_NAMES_RULE));
    return type;
}

static GType curve_get_type() {
    static GType type = 0;
    if (g_once_init_enter(&type)) g_once_init_leave(&type, names_get_type("GstQzrcfaCurve", QZRCFA_NAMES_CURVE));
    return type;
}

static GType wb_auto_get_type() {
    static GType type = 0;
    static const GEnumValue values[] = {
        {WB_OFF, "off: the gains are wb-gains (or none)", "off"},
        {WB_FIRST, "first: grey world's gains from the first frame in which it finds some, kept after", "first"},
        {WB_EVERY, "every: grey world's gains measured every wb-auto-interval frames, kept in between", "every"},
        {0, nullptr, nullptr}};
    if (g_once_init_enter(&type)) g_once_init_leave(&type, g_enum_register_static("GstQzrcfaWbAuto", values));
    return type;
}

// What automatic white balance does with a frame: its number since the balance started,
// whether grey world measures it, and the balance's generation.
struct Balance {
    guint64 frame = 0;
    bool measure = false;
    unsigned generation = 0;
};

// The properties' choice; the gains are those of the frames to come: wb-gains, and with
// automatic white balance grey world's once it found some, else wb-gains or 1. With
// `balance`, the choice for the next frame, which it counts.
static Choice snapshot(GstQzrcfaDemosaic* self, Balance* balance = nullptr) {
    GST_OBJECT_LOCK(self);
    Settings& s = *self->settings;
    Choice c{self->method, self->order, self->rule, self->threads, s.picture};
    if (c.picture.curve == QZRCFA_CURVE_GAMMA) c.picture.gamma = float(s.gamma);
    if (s.wb_auto != WB_OFF) {
        if (s.measured) c.picture.gains = s.measured_gains;
        else if (c.picture.gains == std::array<float, 3>{}) c.picture.gains = {1, 1, 1};
    }
    if (balance) {
        balance->frame = s.frames++;
        balance->measure = s.wb_auto == WB_FIRST ? !s.measured : s.wb_auto == WB_EVERY && balance->frame % s.wb_interval == 0;
        balance->generation = s.generation;
    }
    GST_OBJECT_UNLOCK(self);
    return c;
}

// Automatic white balance from the next frame on, as if the element had just started.
static void restart_balance(Settings& s) {
    s.frames = 0;
    s.measured = false;
    ++s.generation;
}

enum class About { Caps, Setting, Frame };

// A warning on the bus and in the log the first time this text comes in a run of the
// element (until it stops), the log alone after that (caps are asked for again and again
// while a pipeline links and negotiates). A property refused before the element runs is
// told when it starts: gst-launch-1.0 sets properties before the element is in a
// pipeline, whose bus would carry the warning.
static void tell(GstQzrcfaDemosaic* self, const std::string& why, About about) {
    bool first;
    {
        std::lock_guard<std::mutex> lock(self->neg->told_mutex);
        if (about == About::Setting && !self->neg->running) {
            GST_INFO_OBJECT(self, "%s (told when the element starts)", why.c_str());
            self->neg->pending.push_back(why);
            return;
        }
        first = self->neg->told.insert(why).second;
    }
    if (!first) {
        GST_DEBUG_OBJECT(self, "%s", why.c_str());
        return;
    }
    GST_WARNING_OBJECT(self, "%s", why.c_str());
    switch (about) {
    case About::Caps: GST_ELEMENT_WARNING(self, CORE, NEGOTIATION, ("%s", why.c_str()), (nullptr)); break;
    case About::Setting: GST_ELEMENT_WARNING(self, RESOURCE, SETTINGS, ("%s", why.c_str()), (nullptr)); break;
    case About::Frame: GST_ELEMENT_WARNING(self, STREAM, FAILED, ("%s", why.c_str()), (nullptr)); break;
    }
}

// A refusal of caps.
static void refuse(GstQzrcfaDemosaic* self, const std::string& why) { tell(self, why, About::Caps); }

// Reads the text of black-level, wb-gains or color-matrix into `p` ("" reads as none);
// returns why it cannot.
static std::string read_picture(guint id, const std::string& text, Picture& p) {
    if (text.empty()) return "";
    if (id == PROP_BLACK_LEVEL) {
        const auto n = numbers<int>(text);
        if (!n || (n->size() != 1 && n->size() != 4) ||
            std::any_of(n->begin(), n->end(), [](int b) { return b < 0 || b > 65535; }))
            return "black-level '" + text + "' is not one black level or four (the 2x2 tile's places), whole numbers "
                   "from 0 to 65535";
        for (std::size_t k = 0; k < 4; ++k) p.black[k] = (*n)[n->size() == 1 ? 0 : k];
        return "";  // judged against each frame's bits
    }
    const bool gains = id == PROP_WB_GAINS;
    const auto n = numbers<float>(text);
    if (!n || n->size() != (gains ? 3u : 9u))
        return gains ? "wb-gains '" + text + "' is not three gains (red, green, blue)"
                     : "color-matrix '" + text + "' is not nine numbers (camera red, green, blue to the output's, row-major)";
    if (gains) std::copy(n->begin(), n->end(), p.gains.begin());
    else std::copy(n->begin(), n->end(), p.matrix.begin());
    const std::string why = refused(p);
    return why.empty() ? why : (gains ? "wb-gains '" : "color-matrix '") + text + "': " + why;
}

static void set_property(GObject* object, guint id, const GValue* value, GParamSpec* pspec) {
    GstQzrcfaDemosaic* self = GST_QZRCFA_DEMOSAIC(object);
    if (id == PROP_BLACK_LEVEL || id == PROP_WB_GAINS || id == PROP_COLOR_MATRIX) {
        const char* given = g_value_get_string(value);
        const std::string text = given ? given : "";
        Picture p;
        std::string why = read_picture(id, text, p);
        GST_OBJECT_LOCK(self);
        Settings& s = *self->settings;
        std::string& kept = id == PROP_BLACK_LEVEL ? s.black : id == PROP_WB_GAINS ? s.gains : s.matrix;
        if (!why.empty()) {
            why += "; " + std::string(pspec->name) + " stays '" + kept + "'";
        } else {
            kept = text;
            if (id == PROP_BLACK_LEVEL) s.picture.black = p.black;
            if (id == PROP_WB_GAINS) s.picture.gains = p.gains;
            if (id == PROP_COLOR_MATRIX) s.picture.matrix = p.matrix;
        }
        GST_OBJECT_UNLOCK(self);
        if (!why.empty()) tell(self, why, About::Setting);
        return;
    }
    GST_OBJECT_LOCK(self);
    Settings& s = *self->settings;
    switch (id) {
    case PROP_METHOD: self->method = g_value_get_enum(value); break;
    case PROP_ROW_ORDER: self->order = g_value_get_enum(value); break;
    case PROP_RULE: self->rule = g_value_get_enum(value); break;
    case PROP_THREADS: self->threads = g_value_get_int(value); break;
    case PROP_WB_AUTO:
        s.wb_auto = g_value_get_enum(value);
        restart_balance(s);
        break;
    case PROP_WB_AUTO_INTERVAL:
        s.wb_interval = g_value_get_uint(value);
        restart_balance(s);
        break;
    case PROP_CURVE: s.picture.curve = g_value_get_enum(value); break;
    case PROP_GAMMA: s.gamma = g_value_get_double(value); break;
    default: G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec); break;
    }
    GST_OBJECT_UNLOCK(self);
    // Method, row order and rule decide which caps can be served.
    if (id == PROP_METHOD || id == PROP_ROW_ORDER || id == PROP_RULE)
        gst_base_transform_reconfigure_src(GST_BASE_TRANSFORM(self));
}

static void get_property(GObject* object, guint id, GValue* value, GParamSpec* pspec) {
    GstQzrcfaDemosaic* self = GST_QZRCFA_DEMOSAIC(object);
    GST_OBJECT_LOCK(self);
    const Settings& s = *self->settings;
    switch (id) {
    case PROP_METHOD: g_value_set_enum(value, self->method); break;
    case PROP_ROW_ORDER: g_value_set_enum(value, self->order); break;
    case PROP_RULE: g_value_set_enum(value, self->rule); break;
    case PROP_THREADS: g_value_set_int(value, self->threads); break;
    case PROP_BLACK_LEVEL: g_value_set_string(value, s.black.c_str()); break;
    case PROP_WB_GAINS: g_value_set_string(value, s.gains.c_str()); break;
    case PROP_WB_AUTO: g_value_set_enum(value, s.wb_auto); break;
    case PROP_WB_AUTO_INTERVAL: g_value_set_uint(value, s.wb_interval); break;
    case PROP_WB_GAINS_USED: g_value_set_string(value, text_of(s.used.data()).c_str()); break;
    case PROP_COLOR_MATRIX: g_value_set_string(value, s.matrix.c_str()); break;
    case PROP_CURVE: g_value_set_enum(value, s.picture.curve); break;
    case PROP_GAMMA: g_value_set_double(value, s.gamma); break;
    default: G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec); break;
    }
    GST_OBJECT_UNLOCK(self);
}

// The formats a structure allows: its "format" field (a string or a list), or every
// format of the table when it has none; nothing when it is not of `media`.
template <typename Format>
static std::vector<const Format*> formats_of(const GstStructure* s, const char* media, const std::vector<Format>& table) {
    std::vector<const Format*> found;
    if (!gst_structure_has_name(s, media)) return found;
    const GValue* v = gst_structure_get_value(s, "format");
    if (v == nullptr) {
        for (const Format& f : table) found.push_back(&f);
    } else if (G_VALUE_HOLDS_STRING(v)) {
        if (const Format* f = find_format(table, g_value_get_string(v))) found.push_back(f);
    } else if (GST_VALUE_HOLDS_LIST(v)) {
        for (guint i = 0; i < gst_value_list_get_size(v); ++i) {
            const GValue* e = gst_value_list_get_value(v, i);
            if (G_VALUE_HOLDS_STRING(e))
                if (const Format* f = find_format(table, g_value_get_string(e))) found.push_back(f);
        }
    }
    return found;
}

// The formats of every structure of `caps`, or the whole table when there are no caps.
template <typename Format>
static std::vector<const Format*> formats_of(const GstCaps* caps, const char* media, const std::vector<Format>& table) {
    std::vector<const Format*> found;
    if (caps == nullptr)
        for (const Format& f : table) found.push_back(&f);
    for (guint i = 0; caps && i < gst_caps_get_size(caps); ++i)
        for (const Format* f : formats_of(gst_caps_get_structure(caps, i), media, table)) found.push_back(f);
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

// The library's reason for not converting `in` into `out`.
static std::string why_not(const BayerFormat& in, const RawFormat& out, const Choice& c) {
    return reason(make_request(in, out, c, 0, 0));
}

// The format of the other side that a refusal is best explained with: the first of the
// same depth.
static const RawFormat& partner(const BayerFormat& in) {
    for (const RawFormat& out : raw_formats())
        if (out.depth == in.depth) return out;
    return raw_formats()[0];
}

static const BayerFormat& partner(const RawFormat& out) {
    for (const BayerFormat& in : bayer_formats())
        if (in.depth == out.depth) return in;
    return bayer_formats()[0];
}

// Why nothing came of caps offered to the element: when no bayer format of one side
// converts into any raw format of the other (the whole table for a side without caps),
// the library's reason for the first pair of one depth, or else the first pair.
// Nothing when some pair converts: the caps then differ in size or rate, which is not
// the library's to judge.
static void explain_nothing(GstQzrcfaDemosaic* self, const Choice& c, GstPadDirection direction, GstCaps* caps,
                            GstCaps* filter) {
    GstCaps* bayer = direction == GST_PAD_SINK ? caps : filter;
    GstCaps* raw = direction == GST_PAD_SINK ? filter : caps;
    const auto from = formats_of(bayer, "video/x-bayer", bayer_formats());
    const auto into = formats_of(raw, "video/x-raw", raw_formats());
    if (from.empty() || into.empty()) return;  // nothing of ours was offered
    const BayerFormat* in = nullptr;
    const RawFormat* out = nullptr;
    for (const BayerFormat* i : from)
        for (const RawFormat* o : into) {
            if (serves(*i, *o, c)) return;
            if (!in && i->depth == o->depth) in = i, out = o;
        }
    if (!in) in = from[0], out = into[0];
    std::string what = asked(c) + " cannot ";
    what += bayer ? "convert " + in->name + (raw ? std::string(" into ") + out->name : std::string())
                  : std::string("make ") + out->name;
    refuse(self, what + ": " + why_not(*in, *out, c));
}

// Bayer caps to the raw formats the method can make from them, and raw caps to the
// bayer formats it can make them from; size and rate pass through unchanged. Formats
// that convert with nothing are logged with the library's reason: when a link fails as
// a pipeline is built, GStreamer compares the caps itself and the element never sees
// the ones it was offered, so the log is where the reason is. A black level counts as
// one of 1 here: set_caps judges it against the frame's bits and posts its reason, where
// a format left out here often fails a link with none.
static GstCaps* transform_caps(GstBaseTransform* trans, GstPadDirection direction, GstCaps* caps, GstCaps* filter) {
    GstQzrcfaDemosaic* self = GST_QZRCFA_DEMOSAIC(trans);
    Choice c = snapshot(self);
    for (int& black : c.picture.black) black = std::min(black, 1);
    const auto& raws = raw_formats();
    const auto& bayers = bayer_formats();
    GstCaps* result = gst_caps_new_empty();
    for (guint i = 0; i < gst_caps_get_size(caps); ++i) {
        const GstStructure* s = gst_caps_get_structure(caps, i);
        std::vector<const char*> names;
        std::string idle, why;  // the formats of `s` that convert with nothing, and why the first does not
        auto unused = [&](const std::string& name, std::string reason) {
            idle += (idle.empty() ? "" : ", ") + name;
            if (why.empty()) why = std::move(reason);
        };
        if (direction == GST_PAD_SINK) {
            std::vector<bool> made(raws.size());
            for (const BayerFormat* in : formats_of(s, "video/x-bayer", bayers)) {
                bool any = false;
                for (std::size_t k = 0; k < raws.size(); ++k)
                    if (serves(*in, raws[k], c)) made[k] = any = true;
                if (!any) unused(in->name, why_not(*in, partner(*in), c));
            }
            for (std::size_t k = 0; k < raws.size(); ++k)
                if (made[k]) names.push_back(raws[k].name);
        } else {
            std::vector<bool> made(bayers.size());
            for (const RawFormat* out : formats_of(s, "video/x-raw", raws)) {
                bool any = false;
                for (std::size_t k = 0; k < bayers.size(); ++k)
                    if (serves(bayers[k], *out, c)) made[k] = any = true;
                if (!any) unused(out->name, why_not(partner(*out), *out, c));
            }
            for (std::size_t k = 0; k < bayers.size(); ++k)
                if (made[k]) names.push_back(bayers[k].name.c_str());
        }
        if (!idle.empty())
            GST_DEBUG_OBJECT(self, "%s cannot %s %s: %s", asked(c).c_str(),
                             direction == GST_PAD_SINK ? "convert" : "make", idle.c_str(), why.c_str());
        if (names.empty()) continue;
        GstStructure* o = gst_structure_new_empty(direction == GST_PAD_SINK ? "video/x-raw" : "video/x-bayer");
        set_formats(o, names);
        for (const char* field : {"width", "height", "framerate", "pixel-aspect-ratio"})
            if (const GValue* v = gst_structure_get_value(s, field)) gst_structure_set_value(o, field, v);
        result = gst_caps_merge_structure(result, o);
    }
    if (gst_caps_is_empty(result)) explain_nothing(self, c, direction, caps, nullptr);
    if (filter) {
        GstCaps* both = gst_caps_intersect_full(filter, result, GST_CAPS_INTERSECT_FIRST);
        if (gst_caps_is_empty(both) && !gst_caps_is_empty(result)) explain_nothing(self, c, direction, caps, filter);
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
    const GstStructure* o = gst_caps_get_structure(outcaps, 0);
    const BayerFormat* in = find_bayer(gst_structure_get_string(s, "format"));
    const RawFormat* out = find_raw(gst_structure_get_string(o, "format"));
    int width = 0, height = 0, out_width = 0, out_height = 0;
    if (!in || !out || !gst_structure_get_int(s, "width", &width) || !gst_structure_get_int(s, "height", &height) ||
        !gst_structure_get_int(o, "width", &out_width) || !gst_structure_get_int(o, "height", &out_height)) {
        GST_WARNING_OBJECT(self, "cannot read the caps %" GST_PTR_FORMAT " -> %" GST_PTR_FORMAT, incaps, outcaps);
        return FALSE;
    }
    if (out_width != width || out_height != height) {
        GST_WARNING_OBJECT(self, "cannot convert %" GST_PTR_FORMAT " into %" GST_PTR_FORMAT, incaps, outcaps);
        return FALSE;
    }
    // The library first: its reason is the one to give for sizes it does not take, some
    // of which GStreamer's own description of the image does not take either.
    const Choice c = snapshot(self);
    const qzrcfa_request q = make_request(*in, *out, c, width, height);
    const std::string what = in->name + " " + std::to_string(width) + "x" + std::to_string(height) + " into " + out->name;
    if (qzrcfa_output_bytes(&q) == 0) {
        refuse(self, asked(c) + " cannot convert " + what + ": " + reason(q));
        return FALSE;
    }
    GstVideoInfo info;
    if (!gst_video_info_from_caps(&info, outcaps)) {
        refuse(self, "GStreamer cannot describe a " + std::to_string(width) + "x" + std::to_string(height) + " " +
                         out->name + " image (its size overflows GstVideoInfo)");
        return FALSE;
    }
    neg.in = in;
    neg.out = out;
    neg.width = width;
    neg.height = height;
    neg.in_stride = GST_ROUND_UP_4(gsize(width) * gsize(in->depth / 8));
    neg.out_info = info;
    neg.what = what;
    neg.applied = c.picture;
    neg.path.clear();
    GST_DEBUG_OBJECT(self, "%s (stride %" G_GSIZE_FORMAT ", stride %d out) by %s", what.c_str(), neg.in_stride,
                     GST_VIDEO_INFO_PLANE_STRIDE(&info, 0), asked(c).c_str());
    return TRUE;
}

static gboolean get_unit_size(GstBaseTransform*, GstCaps* caps, gsize* size) {
    const GstStructure* s = gst_caps_get_structure(caps, 0);
    int width = 0, height = 0;
    if (gst_structure_has_name(s, "video/x-bayer")) {
        const BayerFormat* f = find_bayer(gst_structure_get_string(s, "format"));
        if (!f || !gst_structure_get_int(s, "width", &width) || !gst_structure_get_int(s, "height", &height))
            return FALSE;
        *size = GST_ROUND_UP_4(gsize(width) * gsize(f->depth / 8)) * gsize(height);
        return TRUE;
    }
    GstVideoInfo info;
    if (!gst_video_info_from_caps(&info, caps)) return FALSE;
    *size = GST_VIDEO_INFO_SIZE(&info);
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

// Grey world's gains for the frame of `q` (its samples, bits, pattern and black level)
// into `q`, and into the settings for the frames to come; a frame in which it finds none,
// or gains the library does not take, keeps the gains of `q` with a warning.
static void measure(GstQzrcfaDemosaic* self, const Balance& balance, qzrcfa_request& q) {
    qzrcfa_request m = q;
    std::fill(m.gains, m.gains + 3, 0.0f);
    float gains[3];
    char why[512];
    std::string failed;
    if (qzrcfa_auto_white_balance(&m, gains, why, sizeof why) != 0) {
        failed = why;
    } else {
        std::copy(gains, gains + 3, m.gains);
        if (qzrcfa_output_bytes(&m) == 0) failed = reason(m);
    }
    if (!failed.empty()) {
        tell(self, "automatic white balance kept the gains " + text_of(q.gains) + ": " + failed, About::Frame);
        return;
    }
    GST_DEBUG_OBJECT(self, "frame %" G_GUINT64_FORMAT ": grey world's gains %s", balance.frame, text_of(gains).c_str());
    std::copy(gains, gains + 3, q.gains);
    GST_OBJECT_LOCK(self);
    Settings& s = *self->settings;
    if (s.generation == balance.generation) {
        s.measured = true;
        std::copy(gains, gains + 3, s.measured_gains.begin());
    }
    GST_OBJECT_UNLOCK(self);
}

static GstFlowReturn transform(GstBaseTransform* trans, GstBuffer* inbuf, GstBuffer* outbuf) {
    GstQzrcfaDemosaic* self = GST_QZRCFA_DEMOSAIC(trans);
    Negotiated& neg = *self->neg;
    if (!neg.in) {
        GST_ELEMENT_ERROR(self, CORE, NEGOTIATION, (nullptr), ("a buffer came before the caps"));
        return GST_FLOW_NOT_NEGOTIATED;
    }
    Balance balance;
    const Choice c = snapshot(self, &balance);
    qzrcfa_request q = make_request(*neg.in, *neg.out, c, neg.width, neg.height);
    q.threads = c.threads;
    if (qzrcfa_output_bytes(&q) == 0) {
        // Black level, gains, matrix or curve set while playing that this frame does not
        // take leave the frames with what they had; anything else changed since the caps
        // were set.
        Choice kept = c;
        kept.picture = neg.applied;
        const qzrcfa_request before = make_request(*neg.in, *neg.out, kept, neg.width, neg.height);
        if (qzrcfa_output_bytes(&before) == 0) {
            GST_ELEMENT_ERROR(self, CORE, NEGOTIATION, (nullptr), ("%s: %s", asked(c).c_str(), reason(q).c_str()));
            return GST_FLOW_NOT_NEGOTIATED;
        }
        tell(self, asked(c) + " cannot convert " + neg.what + " with the black level, gains, matrix and curve set: " +
                       reason(q) + "; the frames keep those they had",
             About::Setting);
        q = before;
        q.threads = c.threads;
    }

    const gsize sample_bytes = gsize(neg.in->depth / 8);
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
                           in_map.size, in_size, neg.width, neg.height, neg.in->name.c_str()));
        gst_buffer_unmap(inbuf, &in_map);
        return GST_FLOW_ERROR;
    }
    // The samples in place, unless their byte order or alignment is not the library's.
    const bool swap = neg.in->big_endian != (G_BYTE_ORDER == G_BIG_ENDIAN);
    const bool odd = sample_bytes == 2 && (reinterpret_cast<std::uintptr_t>(in_map.data) & 1) != 0;
    std::string path;
    if (swap || odd) {
        if (!grow(neg.in_scratch, in_row * gsize(neg.height))) {
            gst_buffer_unmap(inbuf, &in_map);
            GST_ELEMENT_ERROR(self, RESOURCE, NO_SPACE_LEFT, (nullptr), ("no memory for a copy of the frame"));
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
        q.samples = neg.in_scratch.data();
        q.samples_bytes = in_row * gsize(neg.height);
        q.samples_stride = 0;
        path = swap ? "input through a copy (byte order)" : "input through a copy (odd address)";
    } else {
        q.samples = in_map.data;
        q.samples_bytes = in_map.size;
        q.samples_stride = std::ptrdiff_t(neg.in_stride);
        path = "input in place";
    }
    if (balance.measure) measure(self, balance, q);
    float used[3] = {1, 1, 1};  // the library writes them where the gains apply
    q.gains_used = used;

    GstVideoFrame frame;
    if (!gst_video_frame_map(&frame, &neg.out_info, outbuf, GST_MAP_WRITE)) {
        gst_buffer_unmap(inbuf, &in_map);
        GST_ELEMENT_ERROR(self, RESOURCE, WRITE, (nullptr), ("cannot map the output buffer"));
        return GST_FLOW_ERROR;
    }
    // The image in place when the plane's stride suits the library and the plane holds
    // everything the request writes; else in a scratch with rows back to back.
    const gsize out_row = gsize(GST_VIDEO_FRAME_COMP_PSTRIDE(&frame, 0)) * gsize(neg.width);
    const gint plane_stride = GST_VIDEO_FRAME_PLANE_STRIDE(&frame, 0);
    const gsize room = frame.map[0].size - GST_VIDEO_FRAME_PLANE_OFFSET(&frame, 0);
    auto* plane = static_cast<std::uint8_t*>(GST_VIDEO_FRAME_PLANE_DATA(&frame, 0));
    q.output_stride = plane_stride;
    std::size_t need = plane_stride > 0 ? qzrcfa_output_bytes(&q) : 0;
    const bool aligned = neg.out->depth == 8 || (reinterpret_cast<std::uintptr_t>(plane) & 1) == 0;
    const bool direct = need != 0 && need <= room && aligned;
    std::uint8_t* target = plane;
    gsize target_stride = gsize(plane_stride);
    if (direct) {
        path += ", output in place";
    } else {
        q.output_stride = 0;
        need = qzrcfa_output_bytes(&q);
        if (!grow(neg.out_scratch, need)) {
            gst_video_frame_unmap(&frame);
            gst_buffer_unmap(inbuf, &in_map);
            GST_ELEMENT_ERROR(self, RESOURCE, NO_SPACE_LEFT, (nullptr), ("no memory for the image before its rows are copied out"));
            return GST_FLOW_ERROR;
        }
        target = neg.out_scratch.data();
        target_stride = out_row;
        path += ", output through a copy (" + std::to_string(need) + " bytes to write, " + std::to_string(room) +
                " in the plane of stride " + std::to_string(plane_stride) + ")";
    }
    if (qzrcfa_output_defined(&q) == 0)
        for (int y = 0; y < neg.height; ++y) std::memset(target + gsize(y) * target_stride, 0xFF, out_row);
    q.output = target;
    q.output_bytes = direct ? room : need;
    if (path != neg.path) {
        GST_DEBUG_OBJECT(self, "%s", path.c_str());
        neg.path = path;
    }

    char why[512];
    const int status = qzrcfa_demosaic(&q, why, sizeof why);
    if (status == 0 && !direct)
        for (int y = 0; y < neg.height; ++y)
            std::memcpy(plane + gsize(y) * gsize(plane_stride), target + gsize(y) * out_row, out_row);
    gst_video_frame_unmap(&frame);
    gst_buffer_unmap(inbuf, &in_map);
    if (status != 0) {
        GST_ELEMENT_ERROR(self, STREAM, FAILED, (nullptr), ("demosaicing refused: %s", why));
        return GST_FLOW_ERROR;
    }
    set_picture_of(neg.applied, q);
    GST_OBJECT_LOCK(self);
    const bool changed = !std::equal(used, used + 3, self->settings->used.begin());
    std::copy(used, used + 3, self->settings->used.begin());
    GST_OBJECT_UNLOCK(self);
    if (changed) g_object_notify_by_pspec(G_OBJECT(self), gains_used_property);
    return GST_FLOW_OK;
}

// Tells the properties refused before the start.
static gboolean start(GstBaseTransform* trans) {
    GstQzrcfaDemosaic* self = GST_QZRCFA_DEMOSAIC(trans);
    std::vector<std::string> pending;
    {
        std::lock_guard<std::mutex> lock(self->neg->told_mutex);
        self->neg->running = true;
        pending.swap(self->neg->pending);
    }
    for (const std::string& why : pending) tell(self, why, About::Setting);
    return TRUE;
}

static gboolean stop(GstBaseTransform* trans) {
    GstQzrcfaDemosaic* self = GST_QZRCFA_DEMOSAIC(trans);
    Negotiated& neg = *self->neg;
    neg.in = nullptr;
    neg.out = nullptr;
    std::vector<std::uint8_t>().swap(neg.in_scratch);
    std::vector<std::uint8_t>().swap(neg.out_scratch);
    GST_OBJECT_LOCK(self);
    restart_balance(*self->settings);
    self->settings->used = {1, 1, 1};
    GST_OBJECT_UNLOCK(self);
    std::lock_guard<std::mutex> lock(neg.told_mutex);
    neg.told.clear();
    neg.running = false;
    return TRUE;
}

static void finalize(GObject* object) {
    delete GST_QZRCFA_DEMOSAIC(object)->neg;
    delete GST_QZRCFA_DEMOSAIC(object)->settings;
    G_OBJECT_CLASS(gst_qzrcfa_demosaic_parent_class)->finalize(object);
}

static void gst_qzrcfa_demosaic_init(GstQzrcfaDemosaic* self) {
    self->method = QZRCFA_METHOD_BILINEAR;
    self->order = QZRCFA_ORDER_TOP_DOWN;
    self->rule = QZRCFA_RULE_DEFAULT;
    self->threads = 0;
    self->settings = new Settings();
    self->neg = new Negotiated();
}

static GstCaps* template_caps(bool bayer) {
    std::string text = bayer ? "video/x-bayer, format=(string){" : "video/x-raw, format=(string){";
    bool first = true;
    auto add = [&](const std::string& name) {
        text += (first ? " " : ", ") + name;
        first = false;
    };
    if (bayer)
        for (const BayerFormat& f : bayer_formats()) add(f.name);
    else
        for (const RawFormat& f : raw_formats()) add(f.name);
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

    const auto flags = GParamFlags(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS | GST_PARAM_MUTABLE_PLAYING);
    g_object_class_install_property(
        object, PROP_METHOD,
        g_param_spec_enum("method", "Method",
                          "Demosaicing method; negotiation offers only what it serves (grey output: nearest)",
                          method_get_type(), QZRCFA_METHOD_BILINEAR, flags));
    g_object_class_install_property(
        object, PROP_THREADS,
        g_param_spec_int("threads", "Threads",
                         "Threads per frame: 0 for every processor, 1 for the streaming thread alone, N for up to N; "
                         "every count gives the same bytes",
                         0, 1024, 0, flags));
    g_object_class_install_property(
        object, PROP_ROW_ORDER,
        g_param_spec_enum("row-order", "Row order",
                          "Order of the output rows: bottom-up hands the image last row first to a consumer that "
                          "stores it so (laplacian-2's member is top-down only)",
                          row_order_get_type(), QZRCFA_ORDER_TOP_DOWN, flags));
    g_object_class_install_property(
        object, PROP_RULE,
        g_param_spec_enum("rule", "Rule",
                          "What computes the image: the interface's member (exactly its export's bytes, on the "
                          "patterns, orders and formats it has) or the method's general rule (every pattern, order "
                          "and depth, 8-bit output from 16-bit frames)",
                          rule_get_type(), QZRCFA_RULE_DEFAULT, flags));
    g_object_class_install_property(
        object, PROP_BLACK_LEVEL,
        g_param_spec_string("black-level", "Black level",
                            "Black level subtracted from the samples: one for every place of the 2x2 tile (\"64\"), or "
                            "four, comma-separated, row 0 column 0, row 0 column 1, row 1 column 0, row 1 column 1 "
                            "(\"64,60,60,64\"); each below 2^bits of the frame; \"\" for none",
                            "", flags));
    g_object_class_install_property(
        object, PROP_WB_GAINS,
        g_param_spec_string("wb-gains", "White-balance gains",
                            "Gains of red, green and blue, comma-separated, each above 0 and at most 64 "
                            "(\"1.9,1,1.6\"); \"\" for none; with wb-auto, the gains until grey world finds some",
                            "", flags));
    g_object_class_install_property(
        object, PROP_WB_AUTO,
        g_param_spec_enum("wb-auto", "Automatic white balance",
                          "Grey world's gains (green 1), measured on the first frame in which it finds some or every "
                          "wb-auto-interval frames, and kept in between; a frame in which it finds none keeps the "
                          "gains in use (wb-gains' or 1) with a warning. Setting it measures on the next frame",
                          wb_auto_get_type(), WB_OFF, flags));
    g_object_class_install_property(
        object, PROP_WB_AUTO_INTERVAL,
        g_param_spec_uint("wb-auto-interval", "Frames between white-balance measurements",
                          "With wb-auto=every: grey world measures frames 0, N, 2N, ... counted from the start or from "
                          "setting wb-auto or this (1: every frame)",
                          1, G_MAXUINT, 30, flags));
    gains_used_property = g_param_spec_string("wb-gains-used", "White-balance gains used",
                                          "The red, green and blue gains the last frame applied, as wb-gains takes them "
                                          "(1,1,1 without white balance); notified when they change",
                                          "1,1,1", GParamFlags(G_PARAM_READABLE | G_PARAM_STATIC_STRINGS));
    g_object_class_install_property(object, PROP_WB_GAINS_USED, gains_used_property);
    g_object_class_install_property(
        object, PROP_COLOR_MATRIX,
        g_param_spec_string("color-matrix", "Colour matrix",
                            "Output red, green and blue from camera red, green and blue: nine numbers, comma-separated, "
                            "row-major, each from -64 to 64, as a camera's calibration gives them; \"\" for none; "
                            "colour output only",
                            "", flags));
    g_object_class_install_property(
        object, PROP_CURVE,
        g_param_spec_enum("curve", "Curve", "Transfer curve of the output values: linear, sRGB, or the gamma of gamma",
                          curve_get_type(), QZRCFA_CURVE_LINEAR, flags));
    g_object_class_install_property(
        object, PROP_GAMMA,
        g_param_spec_double("gamma", "Gamma", "With curve=gamma: output = linear ^ (1 / gamma)", 0.01, 10, 2.2, flags));

    gst_element_class_set_static_metadata(element, "Bayer demosaicing (qzrcfa)", "Filter/Converter/Video",
                                          "Converts 8- to 16-bit Bayer frames to BGR, BGRx, BGRA or grey with the "
                                          "qzrcfa methods",
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
    base->start = start;
    base->stop = stop;
    base->passthrough_on_same_caps = FALSE;

    gst_type_mark_as_plugin_api(method_get_type(), GstPluginAPIFlags(0));
    gst_type_mark_as_plugin_api(row_order_get_type(), GstPluginAPIFlags(0));
    gst_type_mark_as_plugin_api(rule_get_type(), GstPluginAPIFlags(0));
    gst_type_mark_as_plugin_api(curve_get_type(), GstPluginAPIFlags(0));
    gst_type_mark_as_plugin_api(wb_auto_get_type(), GstPluginAPIFlags(0));
}

static gboolean plugin_init(GstPlugin* plugin) {
    GST_DEBUG_CATEGORY_INIT(qzrcfa_debug, "qzrcfademosaic", 0, "qzrcfa Bayer demosaicing");
    return gst_element_register(plugin, "qzrcfademosaic", GST_RANK_NONE, GST_TYPE_QZRCFA_DEMOSAIC);
}

GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, qzrcfa, "Bayer demosaicing with the qzrcfa library", plugin_init,
                  QZRCFA_VERSION, "unknown", "qzrcfa", "qzrcfa")
