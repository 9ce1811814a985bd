#include "hosting/vst3/vst3_read_stream.h"

#include <algorithm>
#include <cstring>

using namespace Steinberg;

Vst3ReadStream::Vst3ReadStream(std::span<const uint8_t> source)
    : bytes(source.begin(), source.end()) {}

tresult PLUGIN_API Vst3ReadStream::read(void* buffer, int32 numBytes, int32* numBytesRead) {
    if (numBytesRead != nullptr)
        *numBytesRead = 0;
    if (numBytes < 0 || (numBytes > 0 && buffer == nullptr))
        return kInvalidArgument;
    const uint64_t left = bytes.size() - position;
    const auto count =
        static_cast<int32>(std::min<uint64_t>(left, static_cast<uint64_t>(numBytes)));
    if (count > 0)
        std::memcpy(buffer, bytes.data() + position, static_cast<size_t>(count));
    position += static_cast<uint64_t>(count);
    if (numBytesRead != nullptr)
        *numBytesRead = count;
    return kResultOk;
}

tresult PLUGIN_API Vst3ReadStream::write(void*, int32, int32* numBytesWritten) {
    if (numBytesWritten != nullptr)
        *numBytesWritten = 0;
    return kNotImplemented;
}

tresult PLUGIN_API Vst3ReadStream::seek(int64 pos, int32 mode, int64* result) {
    // The base as a signed 64-bit value: the size fits, as settings are far below 2^63 bytes.
    int64 base = 0;
    if (mode == kIBSeekCur)
        base = static_cast<int64>(position);
    else if (mode == kIBSeekEnd)
        base = static_cast<int64>(bytes.size());
    else if (mode != kIBSeekSet)
        return kInvalidArgument;
    const auto size = static_cast<int64>(bytes.size());
    // Compared without forming base + pos, which could overflow.
    const bool inside = pos >= -base && pos <= size - base;
    if (inside)
        position = static_cast<uint64_t>(base + pos);
    if (result != nullptr)
        *result = static_cast<int64>(position);
    return inside ? kResultOk : kInvalidArgument;
}

tresult PLUGIN_API Vst3ReadStream::tell(int64* pos) {
    if (pos == nullptr)
        return kInvalidArgument;
    *pos = static_cast<int64>(position);
    return kResultOk;
}

tresult PLUGIN_API Vst3ReadStream::queryInterface(const TUID iid, void** object) {
    if (object == nullptr)
        return kInvalidArgument;
    if (vst3_com::offerUnknown<IBStream>(this, iid, object) ||
        vst3_com::offer<IBStream>(this, iid, object))
        return kResultOk;
    return vst3_com::refuse(object);
}
