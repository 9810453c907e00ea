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

/* Methods; the values of qzrcfa::Method. */
enum {
    QZRCFA_METHOD_NEAREST = 0,      /* nearest neighbour (the only one for 16-bit frames and grey output) */
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

/* One request. samples: width*height samples of `depth` bits (8 or 16), row-major;
 * sample_count: how many the buffer holds. output: the caller's buffer of
 * output_count elements of output_depth bits (16-bit frames give 16-bit elements).
 * threads: 1 runs on the calling thread exactly as a direct call of the export; 0
 * takes every processor; N > 1 up to N threads (at most 1024). */
typedef struct qzrcfa_request {
    const void* samples;
    size_t sample_count;
    int width, height, depth;
    void* output;
    size_t output_count;
    int output_depth;
    int method, pattern, order, format, threads;
} qzrcfa_request;

/* Checks the request and, if it is sound, runs it. Returns 0, or -1 when refused:
 * then nothing was written and `message` (when not null) holds the reason, cut to
 * message_size bytes with its terminating NUL. */
QZRCFA_EXT_API int qzrcfa_demosaic(const qzrcfa_request* request, char* message, size_t message_size);

/* Every check qzrcfa_demosaic makes, without running anything. */
QZRCFA_EXT_API int qzrcfa_check(const qzrcfa_request* request, char* message, size_t message_size);

/* Elements the output buffer must hold for the request's size, method, pattern, order,
 * format and depth, slack included; 0 when qzrcfa_demosaic would refuse those. The
 * buffer pointers and counts of the request are not looked at. */
QZRCFA_EXT_API size_t qzrcfa_output_elements(const qzrcfa_request* request);

/* Smallest width and height the request's method, pattern, order, format and depth
 * accept; 0 and 0 when that combination does not exist. */
QZRCFA_EXT_API void qzrcfa_minimum_size(const qzrcfa_request* request, int* width, int* height);

/* Threads a request with threads = 0 uses: the processors this program may run on. */
QZRCFA_EXT_API int qzrcfa_processors(void);

/* The instruction set whose kernels this processor runs ("avx512vbmi", "neon", ...). */
QZRCFA_EXT_API const char* qzrcfa_instruction_set(void);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* QZRCFA_EXT_H */
