/* qzrcfa_ext.h: the extended library (libqzrcfa-ext), for C and C++.
 *
 * Everything beyond the 99 exports of qzrcfa.h lives here: checked requests, any
 * member run over bands of rows on several threads with the bytes of one call of its
 * export, and the methods the interface does not have. It is built from the same
 * kernels as libqzrcfa and calls libqzrcfa's exported entry points where a request
 * runs on one thread, so everything that holds for those exports holds here.
 *
 * Threads come from a pool the library starts the first time a request asks for
 * more than one thread: one worker per processor less the calling thread, which
 * always takes part. A video pipeline calling once per frame reuses the same threads
 * and creates none per frame; calls from several threads at once share the pool and
 * each still completes (its calling thread does whatever no worker takes). Frames
 * too small to gain from threads run on the calling thread alone. When workers
 * cannot be started (a limit on processes), calls run on the threads there are and
 * later calls try again; a child process after fork() starts workers of its own.
 *
 * Every call checks its request first and refuses a bad one with one message; the
 * checked C++ interface (qzrcfa.hpp) and the Python module are built on these calls.
 */
#ifndef QZRCFA_EXT_H
#define QZRCFA_EXT_H

#include <stddef.h>

#if defined(_WIN32)
#define QZRCFA_EXT_API
#else
#define QZRCFA_EXT_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Methods; the values of qzrcfa::Method. qzrcfa_names() says what each is called. */
enum {
    QZRCFA_METHOD_NEAREST = 0,      /* nearest neighbour (alone for grey output) */
    QZRCFA_METHOD_BILINEAR = 1,
    QZRCFA_METHOD_EDGE_SENSING_1 = 2,
    QZRCFA_METHOD_EDGE_SENSING_2 = 3,
    QZRCFA_METHOD_LAPLACIAN = 4,
    QZRCFA_METHOD_LAPLACIAN_2 = 5,
    QZRCFA_METHOD_SMOOTH_HUE = 6,
    QZRCFA_METHOD_GBRI = 7          /* extended library only; see README */
};

/* Patterns (top-left 2x2 tile of the frame), row orders and output formats; the
 * values of qzrcfa::Pattern, qzrcfa::RowOrder and qzrcfa::Format. */
enum { QZRCFA_PATTERN_RGGB = 0, QZRCFA_PATTERN_BGGR = 1, QZRCFA_PATTERN_GRBG = 2, QZRCFA_PATTERN_GBRG = 3 };
enum { QZRCFA_ORDER_TOP_DOWN = 0, QZRCFA_ORDER_BOTTOM_UP = 1 };
enum { QZRCFA_FORMAT_GREY = 0, QZRCFA_FORMAT_BGR24 = 24, QZRCFA_FORMAT_BGRA32 = 32 };

/* Which rule a request runs: the interface's member, byte for byte with its export
 * (every asymmetry of the member included), or the method's general rule (the formulas
 * the method states for every pixel, on every pattern and row order, the border computed
 * from the frame mirrored about its edges, 8- or 16-bit samples of any significant bits;
 * see README). The default: the member for 8-bit samples, and for 16-bit samples of all
 * 16 bits where one serves the request as it is (nearest neighbour, grey); the general
 * rule otherwise. The members take samples as they are (fewer `bits` do not change what
 * they compute), so by default a request with fewer `bits` than its depth runs the
 * general rule. gbri, the extended library's own method, has one rule. */
enum { QZRCFA_RULE_DEFAULT = 0, QZRCFA_RULE_MEMBER = 1, QZRCFA_RULE_GENERAL = 2 };

/* How a raw frame's samples lie in its rows. NONE: 8- or 16-bit samples (`depth`); the
 * others are sensors' packed layouts of 10- or 12-bit samples (bits from the layout),
 * which the general rule unpacks as it reads each row. A row that ends inside a packing
 * group has the whole group (its unused samples' bits are ignored); the GenICam bit
 * streams end at the byte that holds their last bit.
 *   RAW10, RAW12: MIPI CSI-2. RAW10: 4 samples in 5 bytes, bytes 0-3 bits 9..2 of samples
 *     0-3, byte 4 their bits 1..0 (sample 0 in bits 1..0). RAW12: 2 samples in 3 bytes,
 *     bytes 0-1 bits 11..4, byte 2 their bits 3..0 (sample 0 in the low nibble).
 *   P10, P12: GenICam 10p and 12p: one little-endian bit stream, each sample least
 *     significant bit first.
 *   PACKED12: GigE Vision 12Packed: bits 11..4 of sample 0; bits 3..0 of sample 0 (low
 *     nibble) and of sample 1 (high nibble); bits 11..4 of sample 1. */
enum {
    QZRCFA_PACKING_NONE = 0,
    QZRCFA_PACKING_RAW10 = 1,
    QZRCFA_PACKING_RAW12 = 2,
    QZRCFA_PACKING_P10 = 3,
    QZRCFA_PACKING_P12 = 4,
    QZRCFA_PACKING_PACKED12 = 5
};

/* White balance: the gains as given, or grey world (the red and blue gains that bring
 * the means of the frame's unsaturated red and blue samples, black level subtracted, to
 * the green one's, read over every fourth pair of rows, at most 64; green 1). */
enum { QZRCFA_WHITE_BALANCE_GIVEN = 0, QZRCFA_WHITE_BALANCE_AUTO = 1 };

/* The output's transfer curve: linear values as they are, the sRGB curve, or a gamma. */
enum { QZRCFA_CURVE_LINEAR = 0, QZRCFA_CURVE_SRGB = 1, QZRCFA_CURVE_GAMMA = 2 };

/* One request. It can grow: `size` says how much of it the caller's header knew, the
 * library reads that much, and takes every field past it as zero; zero always means
 * what a request without the field has always meant (later layouts start their fields
 * at an 8-byte boundary, so a shorter layout's padding is never read as a field). A
 * request larger than this library knows is taken when its unknown fields are all zero.
 * Set it up with
 * QZRCFA_REQUEST_INIT (size = sizeof(qzrcfa_request), the rest zero) and fill in
 * what the call needs:
 *   samples, samples_bytes: the raw frame and how many bytes the buffer holds;
 *   samples_stride: bytes from one row's first sample to the next row's (a padded row),
 *     0 for rows back to back; at least a row's bytes, a multiple of the sample size;
 *   width, height: pixels;
 *   depth: bits per sample, 8 or 16 (16-bit samples in the machine's byte order, the
 *     buffer aligned to 2 bytes);
 *   bits: significant bits of 16-bit samples, 9 to 16, 0 for 16 (values above
 *     2^bits - 1 are taken as 2^bits - 1); 0 for 8-bit samples;
 *   output, output_bytes, output_stride: the caller's image buffer, its size in bytes,
 *     and bytes from one output row to the next (0: rows back to back);
 *   output_depth: bits per output element, 8 or 16; 0 for the samples' depth. 8-bit
 *     elements from 16-bit samples are rounded to nearest from `bits` bits (general
 *     rule only);
 *   method, pattern, order, format: what to run and what to write;
 *   threads: 1 runs on the calling thread (a member: exactly a direct call of its
 *     export); 0 takes every processor; N > 1 up to N threads (at most 1024);
 *   rule: QZRCFA_RULE_*. */
typedef struct qzrcfa_request {
    size_t size;
    const void* samples;
    size_t samples_bytes;
    ptrdiff_t samples_stride;
    int width, height;
    int depth;
    int bits;
    void* output;
    size_t output_bytes;
    ptrdiff_t output_stride;
    int output_depth;
    int method, pattern, order, format;
    int threads;
    int rule;
    int reserved;            /* 0 */
    /* Since the second layout: from a camera's raw frame to a picture, in the same pass.
     * Each of these runs the general rule (gbri: on the frame unpacked and balanced first,
     * then stored as asked); all zero, the request is as before. */
    float* gains_used;       /* where the call writes the red, green and blue gains it applied */
    int packing;             /* QZRCFA_PACKING_* */
    int black[4];            /* black level of the 2x2 tile's places: row 0 column 0, row 0 column 1,
                                row 1 column 0, row 1 column 1; each below 2^bits */
    float gains[3];          /* white-balance gains of red, green and blue, above 0 and at most 64 */
    int white_balance;       /* QZRCFA_WHITE_BALANCE_*: AUTO computes the gains (leave `gains` 0) */
    float matrix[9];         /* a colour matrix: output red, green, blue from camera red, green, blue,
                                row-major, as a camera's calibration gives it */
    int curve;               /* QZRCFA_CURVE_* */
    float gamma;             /* QZRCFA_CURVE_GAMMA's: output = linear ^ (1 / gamma), gamma in (0, 10] */
} qzrcfa_request;

/* A request with its size set and every other field zero. */
static inline qzrcfa_request qzrcfa_request_init(void) {
#ifdef __cplusplus
    qzrcfa_request r = {};
#else
    qzrcfa_request r = {0};
#endif
    r.size = sizeof r;
    return r;
}
#define QZRCFA_REQUEST_INIT qzrcfa_request_init()

/* Checks the request and, if it is sound, runs it. Returns 0, or -1 when refused:
 * then nothing was written and `message` (when not null) holds the reason, cut to
 * message_size bytes with its terminating NUL. */
QZRCFA_EXT_API int qzrcfa_demosaic(const qzrcfa_request* request, char* message, size_t message_size);

/* Every check qzrcfa_demosaic makes, without running anything. */
QZRCFA_EXT_API int qzrcfa_check(const qzrcfa_request* request, char* message, size_t message_size);

/* Bytes the output buffer must hold for the request (its size, strides, method, rule
 * and formats), slack included; 0 when qzrcfa_demosaic would refuse those. The buffer
 * pointers and sizes of the request are not looked at. */
QZRCFA_EXT_API size_t qzrcfa_output_bytes(const qzrcfa_request* request);

/* How the request's raw frame lies (its size, depth, packing, bits and stride): bytes of
 * one row, bytes the whole frame spans (the last row's own bytes only, no padding after
 * it), and the significant bits of its samples. Returns 0, or -1 when qzrcfa_demosaic
 * would refuse those fields. The buffer pointers and sizes are not looked at: a program
 * can check a file's size before it reads or allocates anything. Any pointer may be null. */
QZRCFA_EXT_API int qzrcfa_raw_layout(const qzrcfa_request* request, size_t* row_bytes, size_t* frame_bytes, int* bits);

/* Elements of output_depth bits the output buffer must hold for the request with rows
 * back to back (the output stride taken as 0), slack included; 0 when qzrcfa_demosaic
 * would refuse the request's size, method, rule and formats. */
QZRCFA_EXT_API size_t qzrcfa_output_elements(const qzrcfa_request* request);

/* Smallest width and height the request's method, pattern, order, format and depth
 * accept; 0 and 0 when that combination does not exist. */
QZRCFA_EXT_API void qzrcfa_minimum_size(const qzrcfa_request* request, int* width, int* height);

/* The white-balance gains (red, green, blue) grey world finds in the request's frame
 * (its packing, bits, pattern and black level), as a request with QZRCFA_WHITE_BALANCE_AUTO
 * would apply them: a video program can find them once and keep them. Returns 0, or -1
 * with the reason (a frame with no unsaturated sample of some colour is refused). */
QZRCFA_EXT_API int qzrcfa_auto_white_balance(const qzrcfa_request* request, float gains[3], char* message,
                                             size_t message_size);

/* Whether the request sets every element of its output image whatever the buffer held
 * before: 1 for three-element and grey output, the members that pre-fill with 255 and
 * the extended library's own methods; 0 when some element keeps what the buffer held,
 * or is computed from it (the fourth element of most members: start such a buffer as
 * the picture wants it, 255 for opaque); -1 when qzrcfa_demosaic would refuse the
 * request's method, pattern, order, format or depth. The size, buffers and thread count
 * are not looked at. */
QZRCFA_EXT_API int qzrcfa_output_defined(const qzrcfa_request* request);

/* The names of what a request names, one kind at a time. */
enum {
    QZRCFA_NAMES_METHOD = 0,
    QZRCFA_NAMES_PATTERN = 1,
    QZRCFA_NAMES_ORDER = 2,
    QZRCFA_NAMES_FORMAT = 3,
    QZRCFA_NAMES_RULE = 4,
    QZRCFA_NAMES_PACKING = 5,
    QZRCFA_NAMES_CURVE = 6
};

typedef struct qzrcfa_name {
    int value;               /* QZRCFA_METHOD_*, QZRCFA_PATTERN_*, QZRCFA_ORDER_*, QZRCFA_FORMAT_* */
    const char* name;        /* the one spelling the library writes: "smoothhue", "RGGB", "top-down", "bgr24" */
    const char* aliases;     /* other spellings it reads, comma-separated: "smooth-hue" */
    const char* identifier;  /* as an enumerator: "SmoothHue" */
    const char* label;       /* for people: "smooth hue" */
    const char* summary;     /* one line on what it is */
} qzrcfa_name;

/* The index-th name of a kind (0, 1, ...), in the order the library lists them; null
 * past the last, or for an unknown kind. */
QZRCFA_EXT_API const qzrcfa_name* qzrcfa_names(int kind, int index);

/* The value a text names: its name or one of its aliases, in any case, with or without
 * '-', '_' and spaces ("Edge-Sensing-1", "edge1" and "EDGE_SENSING_1" all name edge
 * sensing 1); -1 when it names none. */
QZRCFA_EXT_API int qzrcfa_lookup(int kind, const char* text);

/* Threads a request with threads = 0 uses: the processors this program may run on. */
QZRCFA_EXT_API int qzrcfa_processors(void);

/* Threads qzrcfa_demosaic splits the request's frame among: its thread count (0: every
 * processor), fewer where the frame is too small for each to gain (each method has a
 * number of pixels a thread should have at least), 1 at least; -1 when qzrcfa_demosaic
 * would refuse its size, method, rule, formats or thread count. The buffers are not
 * looked at. */
QZRCFA_EXT_API int qzrcfa_threads_used(const qzrcfa_request* request);

/* The instruction set whose kernels this processor runs ("avx512vbmi", "neon", ...). */
QZRCFA_EXT_API const char* qzrcfa_instruction_set(void);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* QZRCFA_EXT_H */
