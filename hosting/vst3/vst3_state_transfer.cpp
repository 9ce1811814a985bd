#include "hosting/vst3/vst3_state_transfer.h"

#include "hosting/vst3/vst3_read_stream.h"

#include "public.sdk/source/common/memorystream.h"

#include <limits>
#include <mutex>
#include <span>

namespace vst3 {

using Steinberg::IBStream;
using Steinberg::IPtr;
using Steinberg::kResultTrue;
using Steinberg::MemoryStream;
using Steinberg::owned;

namespace {

std::span<const uint8_t> bytesOf(const MemoryStream& stream) {
    return {reinterpret_cast<const uint8_t*>(stream.getData()),
            static_cast<size_t>(stream.getSize())};
}

// A read-only stream over a copy of `bytes`, positioned at the start, as plug-ins reading state
// expect; it keeps their reads and seeks inside the bytes.
IPtr<Vst3ReadStream> streamOver(std::span<const uint8_t> bytes) {
    return owned(new Vst3ReadStream(bytes));
}

} // namespace

intptr_t Vst3StateTransfer::getChunk(void* ptr) {
    if (ptr == nullptr)
        return 0;
    const std::lock_guard lock(processing.lifecycleLock());
    IPtr<MemoryStream> componentState = owned(new MemoryStream);
    IPtr<MemoryStream> controllerState = owned(new MemoryStream);
    // A side that cannot give its state counts as empty.
    if (parts.component()->getState(componentState) != kResultTrue)
        componentState->setSize(0);
    if (!parts.controller() || parts.controller()->getState(controllerState) != kResultTrue)
        controllerState->setSize(0);
    if (componentState->getSize() == 0 && controllerState->getSize() == 0)
        return 0;
    chunk = vst3_chunk::pack(bytesOf(*componentState), bytesOf(*controllerState));
    *static_cast<void**>(ptr) = chunk.data();
    return static_cast<intptr_t>(chunk.size());
}

std::optional<vst3_chunk::Parts> Vst3StateTransfer::readChunk(intptr_t length, const void* ptr) {
    if (ptr == nullptr || length <= 0 || length > std::numeric_limits<Steinberg::int32>::max())
        return std::nullopt;
    return vst3_chunk::split({static_cast<const uint8_t*>(ptr), static_cast<size_t>(length)});
}

void Vst3StateTransfer::loadChunk(const vst3_chunk::Parts& chunkParts) {
    if (!chunkParts.component.empty()) {
        IPtr<Vst3ReadStream> componentState = streamOver(chunkParts.component);
        parts.component()->setState(componentState);
        if (parts.controller()) {
            componentState->seek(0, IBStream::kIBSeekSet, nullptr);
            parts.controller()->setComponentState(componentState);
        }
    }
    if (!chunkParts.controller.empty() && parts.controller())
        parts.controller()->setState(streamOver(chunkParts.controller));
}

void Vst3StateTransfer::settle() {
    if (!parameters.hasPending())
        return;
    // One frame of silence into scratch: enough for any plug-in to take its queued values.
    processing.processSilentFrame();
}

} // namespace vst3
