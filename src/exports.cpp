// The 99 exports, defined from the catalogue. An export that runs a description hands
// it to the frame driver with its arguments; one that forwards jumps to the export it
// names, through that export's entry point, so that an application that interposes the
// target sees the call; the FastBilinear gate does so for bitCount 24 and 32 alone.
#include "catalogue/catalogue.h"
#include "catalogue/members.h"
#include "qzrcfa.h"

namespace {

const void* own_definition(qzrcfa::catalogue::Id id);

// The exports run on the calling thread, and know their own border fills.
constexpr qzrcfa::detail::Call kExportCall{nullptr, own_definition};

}  // namespace

#define QZRCFA_LINKAGE_C extern "C"
#define QZRCFA_LINKAGE_Cxx extern "C++"
#define QZRCFA_PARAMS_Colour8 unsigned char *src, int width, int height, unsigned char *dst, unsigned short bitCount
#define QZRCFA_PARAMS_Colour16 unsigned short *src, int width, int height, unsigned short *dst, unsigned short bitCount
#define QZRCFA_PARAMS_Grey8 unsigned char *src, int width, int height, unsigned char *dst
#define QZRCFA_PARAMS_Grey16 unsigned short *src, int width, int height, unsigned short *dst
#define QZRCFA_ARGS_Colour8 src, width, height, dst, bitCount
#define QZRCFA_ARGS_Colour16 QZRCFA_ARGS_Colour8
#define QZRCFA_ARGS_Grey8 src, width, height, dst
#define QZRCFA_ARGS_Grey16 QZRCFA_ARGS_Grey8

#define QZRCFA_BODY_Runs(name, what, args) return ::qzrcfa::detail::run(::qzrcfa::members::name, args, kExportCall);
#define QZRCFA_BODY_Forward(name, what, args) return QZRCFA_##what(args);
#define QZRCFA_BODY_Gate(name, what, args) return ::qzrcfa::detail::fast_bilinear_gate(QZRCFA_##what, args);

#define QZRCFA_DEFINE_EXPORT(name, linkage, signature, how, what)                  \
    QZRCFA_LINKAGE_##linkage QZRCFA_API int QZRCFA_##name(QZRCFA_PARAMS_##signature) { \
        QZRCFA_BODY_##how(name, what, QZRCFA_ARGS_##signature)                        \
    }
QZRCFA_CATALOGUE(QZRCFA_DEFINE_EXPORT)

// Hidden aliases of the exports of C linkage: their addresses are the library's own
// definitions, whatever the exported names resolve to.
#define QZRCFA_OWN_C(name, signature)                                                                        \
    extern "C" __attribute__((visibility("hidden"))) int qzrcfa_own_##name(QZRCFA_PARAMS_##signature) \
        __attribute__((alias("QZRCFA_" #name)));
#define QZRCFA_OWN_Cxx(name, signature)
#define QZRCFA_DEFINE_OWN(name, linkage, signature, how, what) QZRCFA_OWN_##linkage(name, signature)
QZRCFA_CATALOGUE(QZRCFA_DEFINE_OWN)

namespace {

#define QZRCFA_OWN_ADDRESS_C(name) reinterpret_cast<const void*>(qzrcfa_own_##name)
#define QZRCFA_OWN_ADDRESS_Cxx(name) nullptr
#define QZRCFA_OWN_ADDRESS(name, linkage, signature, how, what) QZRCFA_OWN_ADDRESS_##linkage(name),

const void* own_definition(qzrcfa::catalogue::Id id) {
    static const void* const kOwn[] = {QZRCFA_CATALOGUE(QZRCFA_OWN_ADDRESS)};
    return kOwn[std::size_t(id)];
}

}  // namespace
