// HEIF/HEIC importer: the file's primary picture through libheif, rotated, mirrored and cropped
// as the file says.
#include "platform/media/ComponentInternal.h"
#include "platform/media/importers/HEIFDerivedImages.h"

#include <libheif/heif.h>

#include <memory>
#include <vector>

namespace plim::media {

namespace {

struct HeifDelete {
    void operator()(heif_context *context) const { heif_context_free(context); }
    void operator()(heif_image_handle *handle) const { heif_image_handle_release(handle); }
    void operator()(heif_image *image) const { heif_image_release(image); }
    void operator()(heif_decoding_options *options) const { heif_decoding_options_free(options); }
};
template <typename T>
using HeifPtr = std::unique_ptr<T, HeifDelete>;

OSErr FromError(const heif_error &error) {
    return error.code == heif_error_Memory_allocation_error ? OSErr{memFullErr} : OSErr{codecBadDataErr};
}

// The structural and HEVC brands; AVIF's are left to its own importer.
constexpr OSType kBrands[] = {FourCC("heic"), FourCC("heix"), FourCC("heim"), FourCC("heis"),
                              FourCC("hevc"), FourCC("hevx"), FourCC("mif1"), FourCC("msf1")};

// The embedded ICC profile, if the file has one (rather than colour described by numbers).
void ReadProfile(const heif_image_handle *handle, std::vector<uint8_t> *icc) {
    heif_color_profile_type type = heif_image_handle_get_color_profile_type(handle);
    if (type != heif_color_profile_type_prof && type != heif_color_profile_type_rICC) return;
    size_t size = heif_image_handle_get_raw_color_profile_size(handle);
    if (size == 0) return;
    icc->resize(size);
    if (heif_image_handle_get_raw_color_profile(handle, icc->data()).code != heif_error_Ok) icc->clear();
}

}  // namespace

bool IsHEIF(const uint8_t *data, size_t size) { return ClaimsBrand(data, size, kBrands); }

OSErr ImportHEIF(const uint8_t *data, size_t size, ImportedImage *out) {
    HeifPtr<heif_context> context(heif_context_alloc());
    if (!context) return memFullErr;
    heif_context_set_maximum_image_size_limit(context.get(), 32767);
    heif_context_set_max_decoding_threads(context.get(), 0);
    heif_error error = heif_context_read_from_memory_without_copy(context.get(), data, size, nullptr);
    if (error.code != heif_error_Ok) return FromError(error);
    heif_image_handle *primary = nullptr;
    error = heif_context_get_primary_image_handle(context.get(), &primary);
    HeifPtr<heif_image_handle> handle(primary);
    if (error.code != heif_error_Ok || !handle) return FromError(error);

    const int width = heif_image_handle_get_width(handle.get());
    const int height = heif_image_handle_get_height(handle.get());
    if (width <= 0 || height <= 0) return codecBadDataErr;
    if (width > 32767 || height > 32767) return codecUnimpErr;
    if (!decoders::DimensionsAcceptable(static_cast<uint64_t>(width), static_cast<uint64_t>(height)) ||
        !HEIFDerivedImagesAcceptable(data, size))
        return memFullErr;
    const bool alpha = heif_image_handle_has_alpha_channel(handle.get()) != 0;

    HeifPtr<heif_decoding_options> options(heif_decoding_options_alloc());
    if (!options) return memFullErr;
    options->convert_hdr_to_8bit = 1;
    heif_image *decoded = nullptr;
    error = heif_decode_image(handle.get(), &decoded, heif_colorspace_RGB,
                              alpha ? heif_chroma_interleaved_RGBA : heif_chroma_interleaved_RGB,
                              options.get());
    HeifPtr<heif_image> image(decoded);
    if (error.code != heif_error_Ok || !image) return FromError(error);

    int stride = 0;
    const uint8_t *plane = heif_image_get_plane_readonly(image.get(), heif_channel_interleaved, &stride);
    const int planeWidth = heif_image_get_width(image.get(), heif_channel_interleaved);
    const int planeHeight = heif_image_get_height(image.get(), heif_channel_interleaved);
    if (!plane || stride <= 0 || planeWidth <= 0 || planeHeight <= 0 || planeWidth > 32767 ||
        planeHeight > 32767 || heif_image_get_bits_per_pixel_range(image.get(), heif_channel_interleaved) != 8)
        return codecBadDataErr;
    if (!RasterFromInterleaved(plane, static_cast<size_t>(stride), static_cast<uint32_t>(planeWidth),
                               static_cast<uint32_t>(planeHeight), alpha ? 4 : 3, &out->raster))
        return memFullErr;
    out->depth = alpha ? 32 : 24;
    ReadProfile(handle.get(), &out->raster.icc);
    return noErr;
}

}  // namespace plim::media
