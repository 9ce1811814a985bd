#pragma once

#include "hosting/vst3/vst3_com.h"

#include "pluginterfaces/base/ibstream.h"

#include <cstdint>
#include <span>
#include <vector>

// Settings bytes as a VST 3 stream that can only be read: a copy of the bytes, so that a
// plug-in keeping the stream past the call still reads valid memory. Every read and seek is
// checked against the size in 64-bit arithmetic; seeking outside the bytes fails and leaves
// the position alone. Made per call on the calling thread; counted, as plug-ins may keep it.
class Vst3ReadStream final : public Steinberg::IBStream {
  public:
    explicit Vst3ReadStream(std::span<const uint8_t> bytes);

    Steinberg::tresult PLUGIN_API read(void* buffer, Steinberg::int32 numBytes,
                                       Steinberg::int32* numBytesRead) override;
    Steinberg::tresult PLUGIN_API write(void* buffer, Steinberg::int32 numBytes,
                                        Steinberg::int32* numBytesWritten) override;
    Steinberg::tresult PLUGIN_API seek(Steinberg::int64 pos, Steinberg::int32 mode,
                                       Steinberg::int64* result) override;
    Steinberg::tresult PLUGIN_API tell(Steinberg::int64* pos) override;

    Steinberg::tresult PLUGIN_API queryInterface(const Steinberg::TUID iid, void** object) override;
    Steinberg::uint32 PLUGIN_API addRef() override { return refs.add(); }
    Steinberg::uint32 PLUGIN_API release() override { return refs.drop(this); }

  private:
    vst3_com::RefCount<Vst3ReadStream> refs;
    std::vector<uint8_t> bytes;
    uint64_t position = 0;
};
