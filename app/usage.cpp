#include "app/usage.h"

#include "app/version.h"
#include "support/errors.h"

#include <cerrno>
#include <cstdio>

namespace {

constexpr char usageText[] = R"(Usage: vst-adapter COMMAND [--KEY VALUE]...

Loads one VST 2.4 or VST 3 effect plug-in and does one thing with it.

Commands:
  test             load the plug-in and unload it (status 0 loaded, 255 not)
  has-editor       status 0 if the plug-in can be configured, 255 if not
  info             print the plug-in's input and output pins on standard error
  params           print one line per parameter on standard error: number (VST 3: id),
                   name, normalised value, display text, unit; tab-separated
  process          stream audio from the input through the plug-in to the output
  configure        show the plug-in's editor; closing it writes the settings to --data
  configure-live   as configure, while chunked audio from the input feeds the plug-in
  scan             list the plug-ins under --vst folders (repeatable) as JSON lines, each
                   examined in a child; --cache FILE, --timeout SECONDS (10), --jobs N (cores)
  validate         run checks on the --vst plug-in (or every one in a folder), each in a child,
                   and report JSON on standard output and a table on standard error;
                   --checks ID,... (load, info, process, block-size, determinism, latency,
                   tail, state, parameters, speed, reopen, suspend-resume, realtime-safety,
                   threads, editor, bus-layouts), --level 1|2|3 (2),
                   --timeout SECONDS per check, --junit FILE
  --help           this text
  --version        the program's version

Options:
  --vst PATH               the plug-in (required)
  --vst-version N          2 or 3 loads only that kind (default: try VST 3, then VST 2)
  --rate HZ                sample rate, 100 to 10000000
  --channels N             input channels, 1 to 32
  --channels-output N      output channels, 1 to 32 (default: as input)
  --chanmask MASK          input speaker mask, decimal (default: by channel count)
  --chanmask-output MASK   output speaker mask
  --bits N                 bits per sample: 8, 16, 24, 32 integer; 32, 64 float
  --formattag N            1 integer PCM (default), 3 IEEE float
  --float64 N              > 0 processes in 64-bit when the plug-in can
  --process realtime       tell the plug-in it runs in real time (default: offline)
  --protocol chunked       framed messages and replies (default: plain stream)
  --data PATH              settings file, read before the command, written by configure
  --input PATH             read from a file or an http(s) URL instead of standard input
  --output PATH            write to a file instead of standard output

Examples:
  vst-adapter process --vst /usr/lib/vst/ZamComp-vst.so --rate 44100 --channels 2 --bits 16 < in.raw > out.raw
  vst-adapter params --vst /usr/lib/vst3/ZamComp.vst3 --data comp.settings
  vst-adapter configure --vst /usr/lib/vst/ZamComp-vst.so --data comp.settings

Messages go to standard error; standard output carries only data. Status 0 is success, 255 failure.
)";

} // namespace

bool isUsageWord(std::string_view command) {
    return command == "--help" || command == "--version";
}

void printUsage(std::string_view command) {
    const bool written = command == "--version"
                             ? std::printf("vst-adapter %s\n", adapterVersion) >= 0
                             : std::fputs(usageText, stdout) >= 0;
    if (!written || std::fflush(stdout) != 0)
        throw Vesk::file_access_error(errno);
}
