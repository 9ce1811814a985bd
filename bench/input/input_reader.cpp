// Reads a whole input the way the plain framing of "process" does (block-sized readSome calls
// on a buffered stream linked to a buffered output) and does nothing else, so that the network
// benchmark times the input path alone.
#include "support/buffered_streams.h"
#include "support/file_stream.h"
#include "support/network/network_input.h"
#include "support/standard_streams.h"

#include <cstdio>
#include <exception>
#include <fstream>
#include <string>
#include <vector>

namespace {
// One 512-frame block of 16-bit stereo.
constexpr uint64_t blockBytes = 512 * 2 * 2;

// The peak resident size of this program since it started, from the kernel's own count for
// its memory map (what a parent's rusage reports may include the parent's memory before exec).
std::string peakResidentSize() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("VmHWM:", 0) == 0)
            return line.substr(line.find_first_not_of(" \t", 6));
    }
    return "unknown";
}
} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("usage: input_reader NAME|-   (a file, an http(s) URL, or - for stdin)\n",
                   stderr);
        return 2;
    }
    try {
        const std::string name = argv[1];
        std::shared_ptr<Vesk::streamIn> source =
            name == "-" ? Vesk::standardInput() : Vesk::openInput(name);
        auto output = std::make_shared<Vesk::bufferedStreamOut>(Vesk::standardOutput());
        Vesk::bufferedStreamIn input(source, output);
        std::vector<unsigned char> block(blockBytes);
        uint64_t total = 0;
        while (const uint64_t got = input.readSome(block.data(), block.size()))
            total += got;
        std::fprintf(stderr, "%llu bytes, peak resident %s\n",
                     static_cast<unsigned long long>(total), peakResidentSize().c_str());
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
    return 0;
}
