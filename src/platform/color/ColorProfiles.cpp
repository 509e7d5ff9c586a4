#include "platform/color/ColorProfiles.h"
#include "platform/runtime/NoThrow.h"

#include <cstdlib>
#include <cstring>
#include <list>
#include <mutex>

namespace plim::color {
namespace {

void SilentErrors(cmsContext, cmsUInt32Number, const char *) {}

// The profile's bytes (empty when they cannot be had, memory included); closes the profile.
std::vector<uint8_t> SaveProfile(cmsHPROFILE profile) {
    std::vector<uint8_t> bytes;
    cmsUInt32Number size = 0;
    if (profile && cmsSaveProfileToMem(profile, nullptr, &size) && size > 0) {
        plim::NoThrow([&] { bytes.resize(size); });
        if (bytes.size() != size || !cmsSaveProfileToMem(profile, bytes.data(), &size)) bytes.clear();
    }
    if (profile) cmsCloseProfile(profile);
    return bytes;
}

// The sRGB transfer function as an ICC parametric curve of type 4.
cmsToneCurve *SRGBToneCurve(cmsContext ctx) {
    const cmsFloat64Number params[5] = {2.4, 1.0 / 1.055, 0.055 / 1.055, 1.0 / 12.92, 0.04045};
    return cmsBuildParametricToneCurve(ctx, 4, params);
}

struct TransformKey {
    std::vector<uint8_t> from, to;
    cmsUInt32Number inFormat, outFormat;
    bool copyAlpha;
};

struct CachedEntry {
    TransformKey key;
    Transform transform;
};

constexpr size_t kMaxCachedTransforms = 32;

}  // namespace

cmsContext Context() {
    static cmsContext ctx = [] {
        cmsContext c = cmsCreateContext(nullptr, nullptr);
        cmsSetLogErrorHandlerTHR(c, SilentErrors);
        return c;
    }();
    return ctx;
}

const std::vector<uint8_t> &SRGBProfileBytes() {
    static const std::vector<uint8_t> bytes = SaveProfile(cmsCreate_sRGBProfileTHR(Context()));
    return bytes;
}

const std::vector<uint8_t> &GreyProfileBytes() {
    static const std::vector<uint8_t> bytes = [] {
        cmsContext ctx = Context();
        cmsCIExyY d65;
        cmsWhitePointFromTemp(&d65, 6504);
        cmsToneCurve *curve = SRGBToneCurve(ctx);
        cmsHPROFILE profile = curve ? cmsCreateGrayProfileTHR(ctx, &d65, curve) : nullptr;
        if (curve) cmsFreeToneCurve(curve);
        return SaveProfile(profile);
    }();
    return bytes;
}

int ProfileComponents(cmsHPROFILE profile) {
    switch (cmsGetColorSpace(profile)) {
        case cmsSigGrayData: return 1;
        case cmsSigRgbData: return 3;
        case cmsSigCmykData: return 4;
        default: return 0;
    }
}

cmsHPROFILE OpenProfileBytes(const void *bytes, size_t size) {
    if (!bytes || size < 128 || size > UINT32_MAX) return nullptr;
    cmsHPROFILE profile =
        cmsOpenProfileFromMemTHR(Context(), bytes, static_cast<cmsUInt32Number>(size));
    if (!profile) return nullptr;
    cmsProfileClassSignature cls = cmsGetDeviceClass(profile);
    bool usableClass = cls == cmsSigInputClass || cls == cmsSigDisplayClass ||
                       cls == cmsSigOutputClass || cls == cmsSigColorSpaceClass;
    if (!usableClass || ProfileComponents(profile) == 0) {
        cmsCloseProfile(profile);
        return nullptr;
    }
    return profile;
}

Transform CachedTransform(const std::vector<uint8_t> &from, const std::vector<uint8_t> &to,
                          cmsUInt32Number inFormat, cmsUInt32Number outFormat, bool copyAlpha) {
    // Building a conversion costs far more than running it over a picture, so each pairing is
    // made once; the list is short and most recently used first.
    static std::mutex mutex;
    static std::list<CachedEntry> cache;
    std::lock_guard<std::mutex> lock(mutex);
    for (auto it = cache.begin(); it != cache.end(); ++it) {
        const TransformKey &k = it->key;
        if (k.inFormat == inFormat && k.outFormat == outFormat && k.copyAlpha == copyAlpha &&
            k.from == from && k.to == to) {
            cache.splice(cache.begin(), cache, it);
            return cache.front().transform;
        }
    }
    cmsHPROFILE src = OpenProfileBytes(from.data(), from.size());
    cmsHPROFILE dst = OpenProfileBytes(to.data(), to.size());
    cmsHTRANSFORM raw = nullptr;
    if (src && dst) {
        // No one-pixel cache inside the transform, so that threads can share it.
        cmsUInt32Number flags = cmsFLAGS_NOCACHE | (copyAlpha ? cmsFLAGS_COPY_ALPHA : 0);
        raw = cmsCreateTransformTHR(Context(), src, inFormat, dst, outFormat, INTENT_PERCEPTUAL,
                                    flags);
    }
    if (src) cmsCloseProfile(src);
    if (dst) cmsCloseProfile(dst);
    if (!raw) return nullptr;
    Transform transform(raw, [](void *t) { cmsDeleteTransform(t); });
    // An evicted transform lives on while a caller still holds it.
    if (cache.size() >= kMaxCachedTransforms) cache.pop_back();
    cache.push_front(
        CachedEntry{TransformKey{from, to, inFormat, outFormat, copyAlpha}, transform});
    return transform;
}

bool ProfileDescribesSRGB(const std::vector<uint8_t> &icc) {
    const std::vector<uint8_t> &srgb = SRGBProfileBytes();
    if (icc == srgb) return true;
    cmsHPROFILE profile = OpenProfileBytes(icc.data(), icc.size());
    if (!profile) return false;
    bool rgb = ProfileComponents(profile) == 3;
    cmsCloseProfile(profile);
    if (!rgb) return false;
    Transform transform = CachedTransform(icc, srgb, TYPE_RGB_8, TYPE_RGB_8, false);
    if (!transform) return false;
    // Every channel at 18 levels, all combinations: primaries, greys, and the curves between.
    constexpr int kLevels = 18;
    std::vector<uint8_t> in, out(kLevels * kLevels * kLevels * 3);
    in.reserve(out.size());
    for (int r = 0; r < kLevels; r++)
        for (int g = 0; g < kLevels; g++)
            for (int b = 0; b < kLevels; b++)
                for (int v : {r, g, b}) in.push_back(static_cast<uint8_t>(v * 15));
    cmsDoTransform(transform.get(), in.data(), out.data(), kLevels * kLevels * kLevels);
    for (size_t i = 0; i < in.size(); i++)
        if (std::abs(static_cast<int>(in[i]) - static_cast<int>(out[i])) > 1) return false;
    return true;
}

}  // namespace plim::color
