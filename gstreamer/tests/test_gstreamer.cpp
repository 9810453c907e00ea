// The qzrcfademosaic element in real pipelines: what leaves it equals qzrcfa_demosaic
// on one thread over the frame that entered it, for each pattern, output format, depth
// and a few methods, padded rows included; caps it cannot serve fail negotiation with
// its reason in the log, and a short buffer is an element error.
//
// Hermetic: the registry holds only the plugins loaded here by path (GStreamer's own
// from GST_PLUGINS_DIR and the element from QZRCFA_GST_PLUGIN), see CMakeLists.txt.
#include <gst/gst.h>
#include <gst/video/video.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <mutex>
#include <random>
#include <string>
#include <vector>

#include "qzrcfa_ext.h"

namespace {

struct Frame {
    std::vector<std::uint8_t> bytes;
    GstCaps* caps = nullptr;
};

struct Outcome {
    std::vector<Frame> in, out;  // buffers entering and leaving the element "d"
    std::string error;           // the first error on the bus: source, message, debug
};

std::mutex log_mutex;
std::string element_log;  // what the element logged, one message a line

void collect_log(GstDebugCategory* category, GstDebugLevel, const gchar*, const gchar*, gint, GObject*,
                 GstDebugMessage* message, gpointer) {
    if (std::strcmp(gst_debug_category_get_name(category), "qzrcfademosaic") != 0) return;
    std::lock_guard<std::mutex> lock(log_mutex);
    element_log += gst_debug_message_get(message);
    element_log += '\n';
}

GstPadProbeReturn capture(GstPad* pad, GstPadProbeInfo* info, gpointer frames) {
    GstBuffer* buffer = GST_PAD_PROBE_INFO_BUFFER(info);
    Frame f;
    f.bytes.resize(gst_buffer_get_size(buffer));
    gst_buffer_extract(buffer, 0, f.bytes.data(), f.bytes.size());
    f.caps = gst_pad_get_current_caps(pad);
    static_cast<std::vector<Frame>*>(frames)->push_back(std::move(f));
    return GST_PAD_PROBE_OK;
}

// Runs the pipeline to its end or first error. An appsrc named "src" gets `push` as
// its one buffer.
Outcome run(const std::string& description, const std::vector<std::uint8_t>* push = nullptr) {
    Outcome r;
    GError* error = nullptr;
    GstElement* pipeline = gst_parse_launch(description.c_str(), &error);
    if (error) {
        r.error = std::string("parse: ") + error->message;
        g_error_free(error);
        if (pipeline) gst_object_unref(pipeline);
        return r;
    }
    GstElement* d = gst_bin_get_by_name(GST_BIN(pipeline), "d");
    for (auto [name, frames] : {std::pair{"sink", &r.in}, std::pair{"src", &r.out}}) {
        GstPad* pad = gst_element_get_static_pad(d, name);
        gst_pad_add_probe(pad, GST_PAD_PROBE_TYPE_BUFFER, capture, frames, nullptr);
        gst_object_unref(pad);
    }
    gst_object_unref(d);
    gst_element_set_state(pipeline, GST_STATE_PLAYING);
    if (GstElement* src = gst_bin_get_by_name(GST_BIN(pipeline), "src")) {
        GstBuffer* buffer = gst_buffer_new_memdup(push->data(), push->size());
        GstFlowReturn flow;
        g_signal_emit_by_name(src, "push-buffer", buffer, &flow);
        gst_buffer_unref(buffer);
        g_signal_emit_by_name(src, "end-of-stream", &flow);
        gst_object_unref(src);
    }
    GstBus* bus = gst_element_get_bus(pipeline);
    GstMessage* m = gst_bus_timed_pop_filtered(bus, 60 * GST_SECOND, GstMessageType(GST_MESSAGE_EOS | GST_MESSAGE_ERROR));
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
    int pattern, depth;
    bool big_endian;
};

Bayer bayer_of(const std::string& name) {
    const char* patterns[] = {"rggb", "bggr", "grbg", "gbrg"};
    for (int p = 0; p < 4; ++p)
        if (name.rfind(patterns[p], 0) == 0)
            return {p, name.size() > 4 ? 16 : 8, name.size() > 4 && name.substr(6) == "be"};
    ADD_FAILURE() << name;
    return {};
}

struct Conversion {
    const char* bayer;
    int width, height;
    const char* properties;
    const char* output;
    bool from_videotestsrc;  // else appsrc with a random mosaic and junk in the row padding
};

// Widths whose rows are not a multiple of 4 bytes pad the bayer rows (rgb2bayer's
// layout), BGR and 16-bit grey rows: the element copies those through scratch.
const Conversion kConversions[] = {
    {"rggb", 64, 48, "", "BGRx", true},
    {"bggr", 30, 20, "threads=1", "BGR", true},
    {"grbg", 61, 40, "method=laplacian threads=2", "BGRA", true},
    {"gbrg", 62, 33, "method=nearest", "GRAY8", true},
    {"rggb", 640, 480, "method=laplacian threads=0", "BGRx", true},
    {"rggb", 64, 32, "method=edge-sensing-2 row-order=bottom-up", "BGRx", false},
    {"bggr", 45, 31, "method=smooth-hue", "BGR", false},
    {"grbg", 40, 40, "method=gbri threads=3", "BGRx", false},
    {"rggb", 36, 20, "method=laplacian-2", "BGR", false},
    {"gbrg", 50, 30, "method=edge-sensing-1 row-order=bottom-up", "BGRA", false},
    {"rggb16le", 33, 21, "method=nearest", "GRAY16_LE", false},
    {"gbrg16be", 34, 20, "method=nearest row-order=bottom-up", "GRAY16_LE", false},  // writes 2 elements past the image
    {"bggr16le", 40, 24, "method=gbri", "BGRA64_LE", false},
    {"grbg16be", 31, 17, "method=nearest", "BGRA64_LE", false},
};

int enum_value(const std::string& properties, const std::string& key, const char* const* nicks, int n, int fallback) {
    const auto at = properties.find(key + "=");
    if (at == std::string::npos) return fallback;
    const std::string value = properties.substr(at + key.size() + 1, properties.find(' ', at) - at - key.size() - 1);
    for (int i = 0; i < n; ++i)
        if (value == nicks[i]) return i;
    ADD_FAILURE() << value;
    return fallback;
}

TEST_F(Element, OutputIsTheLibrarysBytesForTheFrameThatEnteredIt) {
    const char* methods[] = {"nearest",   "bilinear",    "edge-sensing-1", "edge-sensing-2",
                             "laplacian", "laplacian-2", "smooth-hue",     "gbri"};
    const char* orders[] = {"top-down", "bottom-up"};
    std::mt19937 random(7);
    for (const Conversion& c : kConversions) {
        SCOPED_TRACE(std::string(c.bayer) + " " + std::to_string(c.width) + "x" + std::to_string(c.height) + " " +
                     c.properties + " -> " + c.output);
        const Bayer b = bayer_of(c.bayer);
        const std::size_t sample_bytes = b.depth / 8, row = c.width * sample_bytes, stride = (row + 3) & ~std::size_t(3);
        const std::string caps = "video/x-bayer,format=" + std::string(c.bayer) + ",width=" + std::to_string(c.width) +
                                 ",height=" + std::to_string(c.height) + ",framerate=30/1";
        std::string source = "appsrc name=src format=time caps=" + caps;
        std::vector<std::uint8_t> push(stride * c.height);
        for (std::size_t i = 0; i < push.size(); ++i) push[i] = i % stride < row ? std::uint8_t(random()) : 0xA5;
        if (c.from_videotestsrc)
            source = "videotestsrc num-buffers=2 pattern=smpte ! video/x-raw,width=" + std::to_string(c.width) +
                     ",height=" + std::to_string(c.height) + " ! rgb2bayer ! " + caps;
        Outcome r = run(source + " ! qzrcfademosaic name=d " + c.properties + " ! video/x-raw,format=" + c.output +
                        " ! fakesink",
                    &push);
        ASSERT_EQ(r.error, "");
        ASSERT_EQ(r.in.size(), c.from_videotestsrc ? 2u : 1u);
        ASSERT_EQ(r.out.size(), r.in.size());
        if (!c.from_videotestsrc) {
            ASSERT_EQ(r.in[0].bytes, push);
        }
        for (std::size_t n = 0; n < r.in.size(); ++n) {
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
            q.output_depth = out_depth;
            q.method = enum_value(c.properties, "method", methods, 8, QZRCFA_METHOD_BILINEAR);
            q.pattern = b.pattern;
            q.order = enum_value(c.properties, "row-order", orders, 2, QZRCFA_ORDER_TOP_DOWN);
            q.format = GST_VIDEO_INFO_IS_GRAY(&info) ? QZRCFA_FORMAT_GREY
                       : GST_VIDEO_INFO_N_COMPONENTS(&info) == 4 || GST_VIDEO_INFO_COMP_PSTRIDE(&info, 0) == 4
                           ? QZRCFA_FORMAT_BGRA32
                           : QZRCFA_FORMAT_BGR24;
            q.threads = 1;
            q.output_bytes = qzrcfa_output_bytes(&q);
            std::vector<std::uint8_t> expected(q.output_bytes, 0xFF);  // the element's start
            q.output = expected.data();
            char why[256];
            ASSERT_EQ(qzrcfa_demosaic(&q, why, sizeof why), 0) << why;

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
    const char* reason;      // in the element's log or in the bus error
    const char* source;      // the element that posts the error
};

const Refusal kRefusals[] = {
    // bilinear has no 16-bit member
    {"appsrc name=src caps=video/x-bayer,format=rggb16le,width=64,height=48 ! qzrcfademosaic name=d ! fakesink",
     64 * 48 * 2, "method bilinear (top-down) has nothing to convert from video/x-bayer", "src"},
    // edge sensing 2 is RGGB only
    {"appsrc name=src caps=video/x-bayer,format=bggr,width=64,height=48 ! qzrcfademosaic name=d method=edge-sensing-2 "
     "! fakesink",
     64 * 48, "method edge2 (top-down) has nothing to convert from video/x-bayer, format=(string)bggr", "src"},
    // grey output is nearest neighbour only
    {"appsrc name=src caps=video/x-bayer,format=grbg,width=64,height=48 ! qzrcfademosaic name=d ! "
     "video/x-raw,format=GRAY8 ! fakesink",
     64 * 48, "d can't handle caps video/x-raw, format=(string)GRAY8", "parse"},
    // laplacian-2 is top-down only
    {"appsrc name=src caps=video/x-bayer,format=rggb,width=64,height=48 ! qzrcfademosaic name=d method=laplacian-2 "
     "row-order=bottom-up ! fakesink",
     64 * 48, "method laplacian2 (bottom-up) has nothing to convert", "parse"},
    // too small for the method
    {"appsrc name=src caps=video/x-bayer,format=rggb,width=3,height=2 ! qzrcfademosaic name=d method=laplacian ! fakesink",
     4 * 2, "cannot convert rggb 3x2 into BGRx: frame size 3x2 is below the 4x4 minimum", "src"},
    // a buffer one row short; rows of 62 samples take 64 bytes
    {"appsrc name=src caps=video/x-bayer,format=rggb,width=62,height=48 ! qzrcfademosaic name=d ! fakesink", 64 * 47,
     "input buffer of 3008 bytes is smaller than the 3072 bytes of a 62x48 rggb frame", "d"},
};

TEST_F(Element, RefusesWhatItCannotServeWithItsReason) {
    for (const Refusal& c : kRefusals) {
        SCOPED_TRACE(c.pipeline);
        {
            std::lock_guard<std::mutex> lock(log_mutex);
            element_log.clear();
        }
        const std::vector<std::uint8_t> push(c.push_bytes, 0x40);
        Outcome r = run(c.pipeline, &push);
        EXPECT_EQ(r.error.substr(0, r.error.find(':')), c.source) << r.error;
        EXPECT_TRUE(r.out.empty());
        std::lock_guard<std::mutex> lock(log_mutex);
        EXPECT_TRUE(element_log.find(c.reason) != std::string::npos || r.error.find(c.reason) != std::string::npos)
            << r.error << "\n" << element_log;
        release(r);
    }
}

}  // namespace
