// JPEG XL importer: the picture, or an animation's first frame, through libjxl, oriented as the
// file says.
#include "platform/media/ComponentInternal.h"

#include <jxl/decode.h>

#include <memory>
#include <utility>
#include <vector>

namespace plim::media {

namespace {

struct DecoderDelete {
    void operator()(JxlDecoder *decoder) const { JxlDecoderDestroy(decoder); }
};

// Colour the library assumes anyway (sRGB, or grey on the sRGB tone curve) needs no profile.
bool IsSRGB(const JxlColorEncoding &e) {
    return (e.color_space == JXL_COLOR_SPACE_GRAY ||
            (e.color_space == JXL_COLOR_SPACE_RGB && e.primaries == JXL_PRIMARIES_SRGB)) &&
           e.white_point == JXL_WHITE_POINT_D65 && e.transfer_function == JXL_TRANSFER_FUNCTION_SRGB;
}

// The profile of the pixels as they are decoded, unless they are plain sRGB.
bool ReadProfile(const JxlDecoder *decoder, std::vector<uint8_t> *icc) {
    JxlColorEncoding encoding;
    if (JxlDecoderGetColorAsEncodedProfile(decoder, nullptr, JXL_COLOR_PROFILE_TARGET_DATA, &encoding) ==
            JXL_DEC_SUCCESS &&
        IsSRGB(encoding))
        return true;
    size_t size = 0;
    if (JxlDecoderGetICCProfileSize(decoder, nullptr, JXL_COLOR_PROFILE_TARGET_DATA, &size) != JXL_DEC_SUCCESS)
        return false;
    icc->resize(size);
    return JxlDecoderGetColorAsICCProfile(decoder, nullptr, JXL_COLOR_PROFILE_TARGET_DATA, icc->data(),
                                          size) == JXL_DEC_SUCCESS;
}

}  // namespace

bool IsJXL(const uint8_t *data, size_t size) {
    JxlSignature signature = JxlSignatureCheck(data, size);
    return signature == JXL_SIG_CODESTREAM || signature == JXL_SIG_CONTAINER;
}

OSErr ImportJXL(const uint8_t *data, size_t size, ImportedImage *out) {
    if (!IsJXL(data, size)) return codecBadDataErr;
    std::unique_ptr<JxlDecoder, DecoderDelete> decoder(JxlDecoderCreate(nullptr));
    if (!decoder) return memFullErr;
    JxlDecoder *d = decoder.get();
    if (JxlDecoderSubscribeEvents(d, JXL_DEC_BASIC_INFO | JXL_DEC_COLOR_ENCODING | JXL_DEC_FULL_IMAGE) !=
            JXL_DEC_SUCCESS ||
        JxlDecoderSetInput(d, data, size) != JXL_DEC_SUCCESS)
        return codecBadDataErr;
    JxlDecoderCloseInput(d);

    JxlBasicInfo info{};
    JxlPixelFormat format{};
    uint32_t width = 0, height = 0;
    std::vector<uint8_t> pixels;
    for (bool haveInfo = false;;) {
        switch (JxlDecoderProcessInput(d)) {
        case JXL_DEC_BASIC_INFO:
            if (JxlDecoderGetBasicInfo(d, &info) != JXL_DEC_SUCCESS) return codecBadDataErr;
            width = info.xsize;
            height = info.ysize;
            // Orientations from transposition on turn the picture on its side.
            if (info.orientation >= JXL_ORIENT_TRANSPOSE) std::swap(width, height);
            if (width > 32767 || height > 32767) return codecUnimpErr;
            if (!decoders::DimensionsAcceptable(width, height)) return memFullErr;
            format = JxlPixelFormat{(info.num_color_channels == 1 ? 1u : 3u) + (info.alpha_bits > 0 ? 1u : 0u),
                                    JXL_TYPE_UINT8, JXL_NATIVE_ENDIAN, 0};
            haveInfo = true;
            break;
        case JXL_DEC_COLOR_ENCODING:
            if (!ReadProfile(d, &out->raster.icc)) return codecBadDataErr;
            break;
        case JXL_DEC_NEED_IMAGE_OUT_BUFFER: {
            size_t needed = 0;
            if (!haveInfo || JxlDecoderImageOutBufferSize(d, &format, &needed) != JXL_DEC_SUCCESS ||
                needed != static_cast<size_t>(width) * height * format.num_channels)
                return codecBadDataErr;
            pixels.resize(needed);
            if (JxlDecoderSetImageOutBuffer(d, &format, pixels.data(), pixels.size()) != JXL_DEC_SUCCESS)
                return codecBadDataErr;
            break;
        }
        case JXL_DEC_FULL_IMAGE: {
            // The first frame is all we show; the rest of the file is not decoded.
            if (pixels.empty()) return codecBadDataErr;
            const int channels = static_cast<int>(format.num_channels);
            if (!RasterFromInterleaved(pixels.data(), static_cast<size_t>(width) * format.num_channels, width,
                                       height, channels, &out->raster))
                return memFullErr;
            const bool alpha = info.alpha_bits > 0;
            out->premultiplied = alpha && info.alpha_premultiplied;
            out->depth = alpha ? 32 : info.num_color_channels == 1 ? 8 : 24;
            return noErr;
        }
        default:
            // An error, or input that ends before the first frame does.
            return codecBadDataErr;
        }
    }
}

}  // namespace plim::media
