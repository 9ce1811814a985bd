#include "app/commands.h"
#include "app/fatal_reports.h"
#include "app/state_file.h"

#include "audio/framing.h"
#include "audio/stream_format_codec.h"
#include "audio/vst_process.h"
#include "hosting/plugin_stage.h"
#include "support/buffered_streams.h"
#include "support/pipe_buffer.h"
#include "support/stream_unix.h"

#include <memory>
#include <stdexcept>

namespace {

std::unique_ptr<vstProcessShared> makeProcessor(VSTGlobals& globals) {
    const SampleEncoding encoding = sampleEncodingFromArguments(globals.arguments);
    auto giveSettingsFile = [&globals] { applyStateData(globals); };
    if (wantsDoublePrecision(globals.arguments) && globals.plugin->canProcessDouble())
        return std::make_unique<vstProcess2<double>>(globals.plugin, encoding.bits,
                                                     encoding.formatTag, globals.output.get(),
                                                     giveSettingsFile);
    return std::make_unique<vstProcess2<float>>(globals.plugin, encoding.bits, encoding.formatTag,
                                                globals.output.get(), giveSettingsFile);
}

StreamFormatOptions formatOptions(const ArgumentMap& arguments) {
    StreamFormatOptions options;
    options.rate = getIntOption(arguments, "--rate");
    options.channels = getIntOption(arguments, "--channels");
    options.channelsOutput = getIntOption(arguments, "--channels-output");
    options.chanmask = getIntOption(arguments, "--chanmask");
    options.chanmaskOutput = getIntOption(arguments, "--chanmask-output");
    return options;
}

// Applies the command line's format; false when the options give no valid one (audio then
// fails later, or waits for a format message).
bool applyFormatFromOptions(vstProcessShared& processor, const ArgumentMap& arguments) {
    const auto requested = buildStreamFormat(formatOptions(arguments));
    if (!requested)
        return false;
    StreamFormat applied = *requested;
    processor.setStreamFormat(applied);
    if (applied.sampleRate != requested->sampleRate ||
        applied.inputChannels != requested->inputChannels ||
        applied.outputChannels != requested->outputChannels)
        throw std::runtime_error("unsupported stream format");
    return true;
}

// Each system call and each wake-up of a process on either end moves up to this much.
constexpr size_t transferBytes = 1 << 20;

// Standard input and output, when they are pipes; files and network streams stay as they are.
template <typename Stream> void enlargeIfPipe(Stream* stream) {
    if (const auto* descriptor = dynamic_cast<const Vesk::_streamUnixBase*>(stream))
        Vesk::enlargePipeBuffer(descriptor->fd(), transferBytes);
}

} // namespace

bool runProcessCommand(VSTGlobals& globals) {
    if (!globals.plugin)
        return false;
    // Large reads and writes instead of one system call per block; the input flushes the
    // output before it waits, so a parent that waits for our replies is never stalled.
    enlargeIfPipe(globals.input.get());
    enlargeIfPipe(globals.output.get());
    auto output = std::make_shared<Vesk::bufferedStreamOut>(globals.output, transferBytes);
    auto input = std::make_shared<Vesk::bufferedStreamIn>(globals.input, output, transferBytes);
    globals.output = output;
    globals.input = input;
    setOutputToFlushOnExit(output);
    const PluginStageScope stage(PluginStage::processing);

    auto processor = makeProcessor(globals);
    const bool formatSet = applyFormatFromOptions(*processor, globals.arguments);
    const auto protocol = findArgument(globals.arguments, "--protocol");
    if (protocol && *protocol == "chunked")
        runChunkedFraming(*processor, *input, formatSet);
    else
        runPlainFraming(*processor, *input, formatSet);
    processor.reset();
    output->flush();
    return true;
}
