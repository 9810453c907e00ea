// The qzrcfademosaic element in real pipelines: what leaves it equals qzrcfa_demosaic
// on one thread over the frame that entered it, for each pattern, output format, sample
// container (8 to 16 bits) and a few methods and rules, padded rows read and written in
// place, black level, gains, matrix and curve, grey world's gains on the first frame or
// every N frames, and properties set while playing; caps it cannot serve fail negotiation
// with the library's reason posted once as a warning on the bus and in the log, a
// property value it cannot take is told so and left as it was, and a short buffer is an
// element error.
//
// Hermetic: the registry holds only the plugins loaded here by path (GStreamer's own
// from GST_PLUGINS_DIR and the element from QZRCFA_GST_PLUGIN), see CMakeLists.txt.
#include <gst/gst.h>
#include <gst/video/video.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include "qzrcfa_ext.h"

namespace {

struct Frame {
    std::vector<std::uint8_t> bytes;
    GstCaps* caps = nullptr;
    std::string gains_used;  // "d"'s wb-gains-used as the frame left it
};

struct Outcome {
    std::vector<Frame> in, out;         // buffers entering and leaving the element "d"
    std::string error;                  // the first error on the bus: source, message, debug
    std::vector<std::string> warnings;  // the warnings "d" posted
};

// Keeps the warnings `m` holds when "d" posted it.
void keep_warning(GstMessage* m, Outcome& r) {
    if (GST_MESSAGE_TYPE(m) != GST_MESSAGE_WARNING || std::strcmp(GST_OBJECT_NAME(GST_MESSAGE_SRC(m)), "d") != 0) return;
    GError* e = nullptr;
    gst_message_parse_warning(m, &e, nullptr);
    r.warnings.push_back(e->message);
    g_error_free(e);
}

// The warnings still queued on the pipeline's bus.
void drain_warnings(GstElement* pipeline, Outcome& r) {
    GstBus* bus = gst_element_get_bus(pipeline);
    while (GstMessage* m = gst_bus_pop_filtered(bus, GST_MESSAGE_WARNING)) {
        keep_warning(m, r);
        gst_message_unref(m);
    }
    gst_object_unref(bus);
}

std::mutex log_mutex;
std::string element_log;  // what the element logged, one message a line

void collect_log(GstDebugCategory* category, GstDebugLevel, const gchar*, const gchar*, gint, GObject*,
                 GstDebugMessage* message, gpointer) {
    if (std::strcmp(gst_debug_category_get_name(category), "qzrcfademosaic") != 0) return;
    std::lock_guard<std::mutex> lock(log_mutex);
    element_log += gst_debug_message_get(message);
    element_log += '\n';
}

struct Probe {
    std::vector<Frame>* frames;
    GstElement* d;
    std::string later;  // properties set on "d" as the second frame enters it
};

GstPadProbeReturn capture(GstPad* pad, GstPadProbeInfo* info, gpointer data) {
    auto& probe = *static_cast<Probe*>(data);
    GstBuffer* buffer = GST_PAD_PROBE_INFO_BUFFER(info);
    Frame f;
    f.bytes.resize(gst_buffer_get_size(buffer));
    gst_buffer_extract(buffer, 0, f.bytes.data(), f.bytes.size());
    f.caps = gst_pad_get_current_caps(pad);
    if (GST_PAD_IS_SRC(pad)) {
        gchar* used = nullptr;
        g_object_get(probe.d, "wb-gains-used", &used, nullptr);
        f.gains_used = used;
        g_free(used);
    } else if (probe.frames->size() == 1) {
        for (std::size_t at = 0; at < probe.later.size();) {  // "key=value key=value"
            std::size_t end = std::min(probe.later.find(' ', at), probe.later.size());
            const std::string item = probe.later.substr(at, end - at), key = item.substr(0, item.find('='));
            gst_util_set_object_arg(G_OBJECT(probe.d), key.c_str(), item.substr(key.size() + 1).c_str());
            at = end + 1;
        }
    }
    probe.frames->push_back(std::move(f));
    return GST_PAD_PROBE_OK;
}

// Runs the pipeline to its end or first error. An appsrc named "src" gets `push` as
// its buffers; `later` is set on "d" before the second.
Outcome run(const std::string& description, const std::vector<std::vector<std::uint8_t>>& push = {},
            const std::string& later = "") {
    Outcome r;
    GError* error = nullptr;
    GstElement* pipeline = gst_parse_launch(description.c_str(), &error);
    if (error) {
        r.error = std::string("parse: ") + error->message;
        g_error_free(error);
        if (pipeline) {
            drain_warnings(pipeline, r);  // refusals while the parser linked
            gst_object_unref(pipeline);
        }
        return r;
    }
    GstElement* d = gst_bin_get_by_name(GST_BIN(pipeline), "d");
    Probe in{&r.in, d, later}, out{&r.out, d, ""};
    for (auto [name, probe] : {std::pair{"sink", &in}, std::pair{"src", &out}}) {
        GstPad* pad = gst_element_get_static_pad(d, name);
        gst_pad_add_probe(pad, GST_PAD_PROBE_TYPE_BUFFER, capture, probe, nullptr);
        gst_object_unref(pad);
    }
    gst_element_set_state(pipeline, GST_STATE_PLAYING);
    if (GstElement* src = gst_bin_get_by_name(GST_BIN(pipeline), "src")) {
        GstFlowReturn flow;
        for (const auto& frame : push) {
            GstBuffer* buffer = gst_buffer_new_memdup(frame.data(), frame.size());
            g_signal_emit_by_name(src, "push-buffer", buffer, &flow);
            gst_buffer_unref(buffer);
        }
        g_signal_emit_by_name(src, "end-of-stream", &flow);
        gst_object_unref(src);
    }
    GstBus* bus = gst_element_get_bus(pipeline);
    GstMessage* m = nullptr;
    while ((m = gst_bus_timed_pop_filtered(bus, 60 * GST_SECOND,
                                           GstMessageType(GST_MESSAGE_EOS | GST_MESSAGE_ERROR | GST_MESSAGE_WARNING))) &&
           GST_MESSAGE_TYPE(m) == GST_MESSAGE_WARNING) {
        keep_warning(m, r);
        gst_message_unref(m);
    }
    if (m == nullptr) r.error = "timed out";
    else if (GST_MESSAGE_TYPE(m) == GST_MESSAGE_ERROR) {
        GError* e = nullptr;
        gchar* debug = nullptr;
        gst_message_parse_error(m, &e, &debug);
        r.error = std::string(GST_OBJECT_NAME(GST_MESSAGE_SRC(m))) + ": " + e->message + " / " + (debug ? debug : "");
        g_error_free(e);
        g_free(debug);
    }
    if (m) gst_message_unref(m);
    gst_object_unref(bus);
    gst_element_set_state(pipeline, GST_STATE_NULL);
    drain_warnings(pipeline, r);
    gst_object_unref(d);
    gst_object_unref(pipeline);
    return r;
}

void release(Outcome& r) {
    for (auto* frames : {&r.in, &r.out})
        for (Frame& f : *frames)
            if (f.caps) gst_caps_unref(f.caps);
}

class Element : public testing::Test {
  protected:
    static void SetUpTestSuite() {
        gst_init(nullptr, nullptr);
        for (const char* name : {"coreelements", "app", "videotestsrc", "bayer"}) {
            const std::string path = std::string(GST_PLUGINS_DIR) + "/libgst" + name + ".so";
            GstPlugin* p = gst_plugin_load_file(path.c_str(), nullptr);
            ASSERT_NE(p, nullptr) << path;
            gst_object_unref(p);
        }
        GError* error = nullptr;
        GstPlugin* p = gst_plugin_load_file(QZRCFA_GST_PLUGIN, &error);
        ASSERT_NE(p, nullptr) << (error ? error->message : QZRCFA_GST_PLUGIN);
        gst_object_unref(p);
        gst_debug_remove_log_function(gst_debug_log_default);
        gst_debug_add_log_function(collect_log, nullptr, nullptr);
        gst_debug_set_threshold_for_name("qzrcfademosaic", GST_LEVEL_DEBUG);
    }
};

struct Bayer {
    int pattern, depth, bits;
    bool big_endian;
};

// "rggb", "bggr12le", "gbrg16be": pattern, then the container.
Bayer bayer_of(const std::string& name) {
    const char* patterns[] = {"rggb", "bggr", "grbg", "gbrg"};
    for (int p = 0; p < 4; ++p)
        if (name.rfind(patterns[p], 0) == 0) {
            if (name.size() == 4) return {p, 8, 0, false};
            return {p, 16, std::stoi(name.substr(4, 2)), name.substr(6) == "be"};
        }
    ADD_FAILURE() << name;
    return {};
}

struct Conversion {
    const char* bayer;
    int width, height;
    const char* properties;
    const char* output;
    bool from_videotestsrc;  // else appsrc with a random mosaic and junk in the row padding
    const char* copies;      // the sides the element copies: "input" (byte order), "output" (too little room)
    int frames = 1;          // appsrc's, each of another cast (the places of the 2x2 tile scaled)
    int saturated = -1;      // the one of them whose every sample is the largest
    const char* later = "";  // properties set before the second frame: it and those after take them
    const char* warning = "";  // in the one warning "d" posts
};

// Widths whose rows are not a multiple of 4 bytes pad the bayer rows (rgb2bayer's
// layout), BGR and grey rows: the element hands the padded rows to the library as they
// are. 16-bit frames of 10 to 14 bits carry any 16-bit values here, which the library
// takes as the largest the bits hold.
const Conversion kConversions[] = {
    {"rggb", 64, 48, "", "BGRx", true, ""},
    {"bggr", 30, 20, "threads=1", "BGR", true, ""},
    {"grbg", 61, 40, "method=laplacian threads=2", "BGRA", true, ""},
    {"gbrg", 62, 33, "method=nearest", "GRAY8", true, ""},
    {"rggb", 640, 480, "method=laplacian threads=0", "BGRx", true, ""},
    {"rggb", 64, 32, "method=edge-sensing-2 row-order=bottom-up", "BGRx", false, ""},
    {"bggr", 45, 31, "method=smooth-hue", "BGR", false, ""},
    {"grbg", 40, 40, "method=gbri threads=3", "BGRx", false, ""},
    {"rggb", 36, 20, "method=laplacian-2", "BGR", false, ""},
    {"gbrg", 50, 30, "method=edge-sensing-1 row-order=bottom-up", "BGRA", false, ""},
    {"grbg", 45, 29, "method=nearest", "GRAY8", false, ""},
    {"bggr", 47, 31, "method=edge-sensing-2 rule=general", "BGRx", false, ""},
    {"rggb16le", 33, 21, "method=nearest", "GRAY16_LE", false, ""},
    {"gbrg16be", 34, 20, "method=nearest row-order=bottom-up", "GRAY16_LE", false, "input output"},  // writes 2 elements past the image
    {"bggr16le", 40, 24, "method=gbri", "BGRA64_LE", false, ""},
    {"grbg16be", 31, 17, "method=nearest", "BGRA64_LE", false, "input"},
    {"rggb16le", 30, 20, "method=nearest rule=member", "BGRA64_LE", false, ""},
    // The general rule: 16-bit frames of any bits, 8-bit elements rounded from them.
    {"rggb10le", 33, 21, "", "BGRx", false, ""},
    {"bggr12le", 40, 24, "method=smooth-hue", "BGRA64_LE", false, ""},
    {"grbg14le", 31, 17, "method=edge-sensing-1 row-order=bottom-up threads=2", "BGR", false, ""},
    {"gbrg12le", 45, 23, "method=nearest", "GRAY8", false, ""},
    {"gbrg14le", 35, 17, "method=nearest rule=general", "GRAY16_LE", false, ""},
    {"rggb16le", 37, 19, "method=laplacian-2", "BGRA", false, ""},
    {"bggr16be", 29, 15, "method=laplacian", "BGR", false, "input"},
    {"grbg10le", 26, 14, "method=edge-sensing-2 row-order=bottom-up", "BGRA64_LE", false, ""},
    {"rggb12le", 40, 24, "method=gbri", "BGRx", false, ""},
    // A picture in the same pass: black level, gains, matrix and curve run the general rule.
    {"rggb", 40, 24, "black-level=16 wb-gains=1.5,1,2.25", "BGRx", false, ""},
    {"bggr12le", 34, 20, "method=laplacian black-level=200,180,190,3000 wb-gains=2,1,1.5", "BGRA64_LE", false, ""},
    {"grbg", 36, 22, "black-level=8 color-matrix=1.6,-0.4,-0.2,-0.2,1.4,-0.2,0,-0.5,1.5 curve=srgb", "BGR", false, ""},
    {"gbrg10le", 30, 18, "method=gbri curve=gamma gamma=2.4", "BGRx", false, ""},
    // Grey world's gains measured on the first frame, or every N frames, kept in between; a
    // frame without them keeps the gains in use.
    {"rggb", 40, 24, "wb-auto=first black-level=4", "BGRx", false, "", 3},
    {"gbrg16le", 30, 20, "method=smooth-hue wb-auto=every wb-auto-interval=2", "BGRA64_LE", false, "", 5},
    {"bggr", 32, 20, "wb-auto=first wb-gains=1.25,1,1.5", "BGR", false, "", 3, 0,
     "", "automatic white balance kept the gains 1.25,1,1.5: automatic white balance found no unsaturated sample"},
    // Set while playing: the next frame takes them, or keeps what it had with a warning.
    {"grbg", 40, 24, "wb-gains=2,1,1", "BGRx", false, "", 3, -1, "wb-gains=1,1,2 curve=srgb"},
    {"rggb", 40, 24, "black-level=16", "BGRx", false, "", 2, -1, "black-level=300",
     "method bilinear cannot convert rggb 40x24 into BGRx with the black level, gains, matrix and curve set: black level "
     "300 is outside 0..255 of 8-bit samples; the frames keep those they had"},
};

// The value of the last "key=value" in `properties`; "" when there is none.
std::string value_of(const std::string& properties, const std::string& key) {
    const std::string all = " " + properties + " ";
    const auto at = all.rfind(" " + key + "=");
    if (at == std::string::npos) return "";
    const auto from = at + key.size() + 2;
    return all.substr(from, all.find(' ', from) - from);
}

int enum_value(const std::string& properties, const std::string& key, const char* const* nicks, int n, int fallback) {
    const std::string value = value_of(properties, key);
    if (value.empty()) return fallback;
    for (int i = 0; i < n; ++i)
        if (value == nicks[i]) return i;
    ADD_FAILURE() << value;
    return fallback;
}

// The comma-separated numbers of a property, into `to` (one repeated for all four places
// of black-level); nothing when the property is not there.
template <typename T>
void numbers_of(const std::string& properties, const std::string& key, T* to, std::size_t n) {
    std::vector<T> found;
    std::string text = value_of(properties, key);
    for (std::size_t at = 0; !text.empty() && at <= text.size(); at = text.find(',', at) + 1) {
        found.push_back(std::is_integral_v<T> ? T(std::stoi(text.substr(at))) : T(std::stof(text.substr(at))));
        if (text.find(',', at) == std::string::npos) break;
    }
    for (std::size_t k = 0; k < found.size() && k < n; ++k) to[k] = found[k];
    if (found.size() == 1)
        for (std::size_t k = 1; k < n; ++k) to[k] = found[0];
}

TEST_F(Element, OutputIsTheLibrarysBytesForTheFrameThatEnteredIt) {
    const char* methods[] = {"nearest",   "bilinear",    "edge-sensing-1", "edge-sensing-2",
                             "laplacian", "laplacian-2", "smooth-hue",     "gbri"};
    const char* orders[] = {"top-down", "bottom-up"};
    const char* rules[] = {"default", "member", "general"};
    const char* curves[] = {"linear", "srgb", "gamma"};
    std::mt19937 random(7);
    for (const Conversion& c : kConversions) {
        SCOPED_TRACE(std::string(c.bayer) + " " + std::to_string(c.width) + "x" + std::to_string(c.height) + " " +
                     c.properties + " -> " + c.output);
        {
            std::lock_guard<std::mutex> lock(log_mutex);
            element_log.clear();
        }
        const Bayer b = bayer_of(c.bayer);
        const std::size_t sample_bytes = b.depth / 8, row = c.width * sample_bytes, stride = (row + 3) & ~std::size_t(3);
        const std::string caps = "video/x-bayer,format=" + std::string(c.bayer) + ",width=" + std::to_string(c.width) +
                                 ",height=" + std::to_string(c.height) + ",framerate=30/1";
        std::string source = "appsrc name=src format=time caps=" + caps;
        std::vector<std::vector<std::uint8_t>> push(c.from_videotestsrc ? 0 : c.frames,
                                                    std::vector<std::uint8_t>(stride * c.height, 0xA5));
        const unsigned top = (1u << b.depth) - 1;
        for (int k = 0; k < int(push.size()); ++k)
            for (int y = 0; y < c.height; ++y)
                for (int x = 0; x < c.width; ++x) {
                    const unsigned cast = 4 - (k + (y % 2) * 2 + x % 2) % 3;  // quarters of the range
                    const unsigned v = k == c.saturated ? top : unsigned(random()) % ((top + 1) / 4 * cast);
                    std::uint8_t* at = &push[k][y * stride + x * sample_bytes];
                    at[0] = std::uint8_t(b.depth == 8 || !b.big_endian ? v : v >> 8);
                    if (b.depth == 16) at[1] = std::uint8_t(b.big_endian ? v : v >> 8);
                }
        if (c.from_videotestsrc)
            source = "videotestsrc num-buffers=2 pattern=smpte ! video/x-raw,width=" + std::to_string(c.width) +
                     ",height=" + std::to_string(c.height) + " ! rgb2bayer ! " + caps;
        Outcome r = run(source + " ! qzrcfademosaic name=d " + c.properties + " ! video/x-raw,format=" + c.output +
                        " ! fakesink",
                    push, c.later);
        ASSERT_EQ(r.error, "");
        EXPECT_EQ(r.warnings.size(), *c.warning ? 1u : 0u) << testing::PrintToString(r.warnings);
        if (*c.warning && !r.warnings.empty()) {
            EXPECT_NE(r.warnings[0].find(c.warning), std::string::npos) << r.warnings[0];
        }
        ASSERT_EQ(r.in.size(), c.from_videotestsrc ? 2u : push.size());
        ASSERT_EQ(r.out.size(), r.in.size());
        for (std::size_t n = 0; n < push.size(); ++n) ASSERT_EQ(r.in[n].bytes, push[n]);
        {
            const std::string copies = c.copies;
            std::lock_guard<std::mutex> lock(log_mutex);
            for (const char* side : {"input", "output"}) {
                const bool copied = copies.find(side) != std::string::npos;
                EXPECT_NE(element_log.find(std::string(side) + (copied ? " through a copy" : " in place")), std::string::npos)
                    << element_log;
                EXPECT_EQ(element_log.find(std::string(side) + (copied ? " in place" : " through a copy")), std::string::npos)
                    << element_log;
            }
        }
        bool measured = false;  // whether grey world found gains, and which
        float auto_gains[3] = {};
        qzrcfa_request previous = QZRCFA_REQUEST_INIT;
        for (std::size_t n = 0; n < r.in.size(); ++n) {
            const std::string p = c.properties + std::string(n > 0 && *c.later ? " " : "") + (n > 0 ? c.later : "");
            // The compact samples, in the machine's order.
            const Frame& in = r.in[n];
            ASSERT_GE(in.bytes.size(), stride * c.height);
            std::vector<std::uint8_t> samples(row * c.height);
            for (int y = 0; y < c.height; ++y)
                for (std::size_t x = 0; x < row; ++x)
                    samples[y * row + x] = in.bytes[y * stride + (b.big_endian ? x ^ 1 : x)];

            GstVideoInfo info;
            ASSERT_TRUE(gst_video_info_from_caps(&info, r.out[n].caps));
            const int out_depth = GST_VIDEO_INFO_COMP_DEPTH(&info, 0);
            qzrcfa_request q = QZRCFA_REQUEST_INIT;
            q.samples = samples.data();
            q.samples_bytes = samples.size();
            q.width = c.width;
            q.height = c.height;
            q.depth = b.depth;
            q.bits = b.bits;
            q.output_depth = out_depth;
            q.method = enum_value(p, "method", methods, 8, QZRCFA_METHOD_BILINEAR);
            q.pattern = b.pattern;
            q.order = enum_value(p, "row-order", orders, 2, QZRCFA_ORDER_TOP_DOWN);
            q.format = GST_VIDEO_INFO_IS_GRAY(&info) ? QZRCFA_FORMAT_GREY
                       : GST_VIDEO_INFO_N_COMPONENTS(&info) == 4 || GST_VIDEO_INFO_COMP_PSTRIDE(&info, 0) == 4
                           ? QZRCFA_FORMAT_BGRA32
                           : QZRCFA_FORMAT_BGR24;
            q.threads = 1;
            q.rule = enum_value(p, "rule", rules, 3, QZRCFA_RULE_DEFAULT);
            numbers_of(p, "black-level", q.black, 4);
            numbers_of(p, "wb-gains", q.gains, 3);
            numbers_of(p, "color-matrix", q.matrix, 9);
            q.curve = enum_value(p, "curve", curves, 3, QZRCFA_CURVE_LINEAR);
            if (q.curve == QZRCFA_CURVE_GAMMA) q.gamma = std::stof(value_of(p, "gamma"));
            if (qzrcfa_output_bytes(&q) == 0 && n > 0) {  // refused while playing: the frame before's
                std::copy(previous.black, previous.black + 4, q.black);
                std::copy(previous.gains, previous.gains + 3, q.gains);
            }
            char why[256];
            const std::string wb = value_of(p, "wb-auto");
            if (wb == "first" || wb == "every") {
                const std::string interval = value_of(p, "wb-auto-interval");
                if (wb == "first" ? !measured : n % std::stoul(interval.empty() ? "30" : interval) == 0) {
                    float gains[3];
                    if (qzrcfa_auto_white_balance(&q, gains, why, sizeof why) == 0)
                        std::copy(gains, gains + 3, auto_gains), measured = true;
                }
                if (measured) std::copy(auto_gains, auto_gains + 3, q.gains);
                else if (q.gains[0] == 0) std::fill(q.gains, q.gains + 3, 1.0f);
            }
            previous = q;
            float used[3] = {1, 1, 1};
            q.gains_used = used;
            q.output_bytes = qzrcfa_output_bytes(&q);
            std::vector<std::uint8_t> expected(q.output_bytes, 0xFF);  // the element's start
            q.output = expected.data();
            ASSERT_EQ(qzrcfa_demosaic(&q, why, sizeof why), 0) << why;
            float shown[3] = {};
            numbers_of("used=" + r.out[n].gains_used, "used", shown, 3);
            EXPECT_EQ(std::vector<float>(shown, shown + 3), std::vector<float>(used, used + 3)) << "frame " << n;

            const std::size_t pixel = GST_VIDEO_INFO_COMP_PSTRIDE(&info, 0), out_row = pixel * c.width;
            const std::size_t out_stride = GST_VIDEO_INFO_PLANE_STRIDE(&info, 0);
            ASSERT_GE(r.out[n].bytes.size(), out_stride * (c.height - 1) + out_row);
            int mismatches = 0;
            for (int y = 0; y < c.height && mismatches < 5; ++y)
                for (std::size_t x = 0; x < out_row && mismatches < 5; ++x)
                    if (r.out[n].bytes[y * out_stride + x] != expected[y * out_row + x]) {
                        ADD_FAILURE() << "frame " << n << " row " << y << " byte " << x;
                        ++mismatches;
                    }
        }
        release(r);
    }
}

struct Refusal {
    const char* pipeline;
    std::size_t push_bytes;  // what appsrc pushes
    const char* source;      // the element that posts the error; "parse" when linking fails; "" when the
                             // frames go on (a property's value refused, the property as it was)
    const char* reason;      // in the one warning "d" posts and in its log; in its log alone when linking
                             // fails (GStreamer compares the caps itself); in the error from "d"
};

const Refusal kRefusals[] = {
    // edge sensing 2's members are RGGB only
    {"appsrc name=src caps=video/x-bayer,format=bggr,width=64,height=48 ! qzrcfademosaic name=d method=edge-sensing-2 "
     "! fakesink",
     64 * 48, "src", "method edge2 cannot convert bggr: no member of edge2 for BGGR top-down"},
    // the same while the parser links, whose error says nothing of why
    {"videotestsrc num-buffers=1 ! video/x-raw,width=64,height=48 ! rgb2bayer ! video/x-bayer,format=gbrg ! "
     "qzrcfademosaic name=d method=laplacian-2 ! fakesink",
     0, "parse", "method laplacian2 cannot convert bggr, grbg, gbrg: no member of laplacian2 for BGGR top-down"},
    // grey output is nearest neighbour's
    {"appsrc name=src caps=video/x-bayer,format=grbg,width=64,height=48 ! qzrcfademosaic name=d ! "
     "video/x-raw,format=GRAY8 ! fakesink",
     64 * 48, "parse", "method bilinear cannot make GRAY8, GRAY16_LE: no member of bilinear writes grey"},
    // laplacian-2's member is top-down only
    {"appsrc name=src caps=video/x-bayer,format=rggb,width=64,height=48 ! qzrcfademosaic name=d method=laplacian-2 "
     "row-order=bottom-up ! fakesink",
     64 * 48, "src", "no member of laplacian2 for RGGB bottom-up"},
    // the member rule asked of a 16-bit frame that only the general rule serves
    {"appsrc name=src caps=video/x-bayer,format=gbrg16le,width=64,height=48 ! qzrcfademosaic name=d rule=member "
     "! fakesink",
     64 * 48 * 2, "src", "method bilinear, rule member cannot convert gbrg16le: no member of bilinear takes 16-bit samples"},
    // too small for the method
    {"appsrc name=src caps=video/x-bayer,format=rggb,width=3,height=2 ! qzrcfademosaic name=d method=laplacian ! fakesink",
     4 * 2, "src", "method laplacian cannot convert rggb 3x2 into BGRx: frame size 3x2 is below the 4x4 minimum"},
    // too large for the members' 32-bit sizes (and for GstVideoInfo)
    {"appsrc name=src caps=video/x-bayer,format=rggb,width=46341,height=46341 ! qzrcfademosaic name=d ! fakesink", 16,
     "src", "cannot convert rggb 46341x46341 into BGRx: frame size 46341x46341 is too large: the interface's members"},
    // a black level from 0 to 2^bits - 1 of the frame
    {"appsrc name=src caps=video/x-bayer,format=rggb10le,width=64,height=48 ! qzrcfademosaic name=d black-level=1024 "
     "! fakesink",
     64 * 48 * 2, "src", "method bilinear cannot convert rggb10le 64x48 into BGRx: black level 1024 is outside 0..1023 of "
     "10-bit samples"},
    // values the element or the library does not take, told once the element starts
    {"appsrc name=src caps=video/x-bayer,format=rggb,width=64,height=48 ! qzrcfademosaic name=d black-level=64,64 "
     "! fakesink",
     64 * 48, "", "black-level '64,64' is not one black level or four (the 2x2 tile's places), whole numbers from 0 to 65535; "
     "black-level stays ''"},
    {"appsrc name=src caps=video/x-bayer,format=rggb,width=64,height=48 ! qzrcfademosaic name=d wb-gains=1.5,1,1 "
     "wb-gains=1,65,1 ! fakesink",
     64 * 48, "", "wb-gains '1,65,1': gain 65.000000 is not a number above 0 and at most 64; wb-gains stays '1.5,1,1'"},
    {"appsrc name=src caps=video/x-bayer,format=rggb,width=64,height=48 ! qzrcfademosaic name=d "
     "color-matrix=1,0,0,0,1,0,0,0,1x ! fakesink",
     64 * 48, "", "color-matrix '1,0,0,0,1,0,0,0,1x' is not nine numbers"},
    // a buffer one row short; rows of 62 samples take 64 bytes
    {"appsrc name=src caps=video/x-bayer,format=rggb,width=62,height=48 ! qzrcfademosaic name=d ! fakesink", 64 * 47,
     "d", "input buffer of 3008 bytes is smaller than the 3072 bytes of a 62x48 rggb frame"},
};

TEST_F(Element, RefusesWhatItCannotServeWithItsReason) {
    for (const Refusal& c : kRefusals) {
        SCOPED_TRACE(c.pipeline);
        {
            std::lock_guard<std::mutex> lock(log_mutex);
            element_log.clear();
        }
        const std::vector<std::uint8_t> push(c.push_bytes, 0x40);
        Outcome r = run(c.pipeline, {push});
        EXPECT_EQ(r.error.substr(0, r.error.find(':')), c.source) << r.error;
        EXPECT_EQ(r.out.empty(), *c.source != '\0');
        std::lock_guard<std::mutex> lock(log_mutex);
        if (std::string(c.source) == "d") {  // not a refusal of caps: an element error
            EXPECT_NE(r.error.find(c.reason), std::string::npos) << r.error;
            EXPECT_TRUE(r.warnings.empty());
        } else if (std::string(c.source) == "parse") {
            EXPECT_NE(element_log.find(c.reason), std::string::npos) << element_log;
        } else {
            // Posted once however often the caps were asked for, and logged.
            int posted = 0;
            for (const std::string& w : r.warnings) posted += w.find(c.reason) != std::string::npos;
            EXPECT_EQ(posted, 1) << testing::PrintToString(r.warnings);
            EXPECT_NE(element_log.find(c.reason), std::string::npos) << element_log;
        }
        release(r);
    }
}

}  // namespace
