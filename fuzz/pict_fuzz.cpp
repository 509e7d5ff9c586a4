// libFuzzer target for the PICT reader: arbitrary bytes as a picture (without file header),
// drawn on canvases of at most 4 megapixels.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "platform/media/pict/PictCodec.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace plim::pict;
    std::vector<uint8_t> argb;
    PictInfo info{};
    const PictStatus status = DecodePict(data, size, &argb, &info, int64_t{1} << 22);
    if (!argb.empty() &&
        argb.size() != static_cast<size_t>(info.width) * static_cast<size_t>(info.height) * 4) {
        abort();
    }
    PictInfo quick{};
    const PictStatus quickStatus = ReadPictInfo(data, size, &quick);
    if (status != PictStatus::TooLarge && quickStatus != status) abort();
    return 0;
}
