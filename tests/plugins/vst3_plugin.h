#pragma once

#include "hosting/vst3/vst3_com.h"
#include "tests/plugins/call_log.h"

#include "pluginterfaces/base/ibstream.h"
#include "pluginterfaces/vst/ivstaudioprocessor.h"
#include "pluginterfaces/vst/ivstcomponent.h"
#include "pluginterfaces/vst/ivsteditcontroller.h"

#include <string>

// A VST 3 gain effect built only for the tests; behaviour chosen by TEST_VST3 (see README.md).
namespace test_vst3 {

using namespace Steinberg;
using namespace Steinberg::Vst;

// What TEST_VST3 asked for, read when the module is entered; copied into each object.
struct Options {
    bool mono = false;
    bool doublePrecision = false;
    bool controllerState = false;
    bool editor = false;
    uint32 latency = 0;  // reported once active, as by plug-ins whose delay follows the set-up
    std::string logPath; // TEST_VST3_LOG
};

// Ids deliberately not 0..n-1, so that index and id cannot be confused.
inline constexpr ParamID gainId = 100;    // output = input x 2 x value
inline constexpr ParamID polarityId = 7;  // switch: inverts the output
inline constexpr ParamID bypassId = 300;  // bypass: output = input
inline constexpr ParamID programId = 400; // program change, 4 programs

// The values both sides keep; the component's state is "TV3S" and the first three as float64.
struct Values {
    double gain = 0.5;
    double polarity = 0.0;
    double bypass = 0.0;
    double program = 0.0;

    double* find(ParamID id);
};

bool readValues(IBStream& stream, Values& values);
bool writeValues(IBStream& stream, const Values& values);

extern const TUID controllerClassId;

// New objects with one reference, which the caller owns.
IComponent* makeComponent(const Options& options);
IEditController* makeController(const Options& options);

} // namespace test_vst3
