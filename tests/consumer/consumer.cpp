// Uses both installed headers: the plain exports and the checked C++ interface must
// agree byte for byte, and a bad request must be refused.
#include <qzrcfa.h>

#include <cstdio>
#include <qzrcfa.hpp>
#include <vector>

int main() {
    const int w = 16, h = 12;
    std::vector<unsigned char> raw(w * h);
    for (int i = 0; i < w * h; ++i) raw[i] = static_cast<unsigned char>(i * 37 + 11);
    std::vector<unsigned char> direct(w * h * 3, 0), checked(w * h * 3, 0);

    QZRCFA_NearestNeighbor_GRBG(raw.data(), w, h, direct.data(), 24);
    const qzrcfa::Options o{qzrcfa::Method::NearestNeighbor, qzrcfa::Pattern::GRBG};
    const qzrcfa::Result r = qzrcfa::demosaic(qzrcfa::RawFrame(raw.data(), raw.size(), w, h),
                                              qzrcfa::OutputImage(checked.data(), checked.size()), o);
    if (!r) {
        std::fprintf(stderr, "consumer: %s\n", r.message().c_str());
        return 1;
    }
    if (checked != direct) {
        std::fprintf(stderr, "consumer: the checked call differs from the direct one\n");
        return 1;
    }
    const qzrcfa::Result refused = qzrcfa::demosaic(qzrcfa::RawFrame(raw.data(), raw.size(), w, h),
                                                    qzrcfa::OutputImage(checked.data(), 10), o);
    if (refused) {
        std::fprintf(stderr, "consumer: a 10-element output was accepted\n");
        return 1;
    }
    std::printf("consumer: ok (library %d.%d.%d)\n", QZRCFA_VERSION_MAJOR, QZRCFA_VERSION_MINOR, QZRCFA_VERSION_PATCH);
    return 0;
}
