#include "tests/hosting/fake_effect.h"

#include "hosting/plugin_host.h"
#include "hosting/plugin_loading.h"
#include "hosting/plugin_state.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <vector>

namespace {

// A host attached to a fake plug-in; the host goes first, as it closes the plug-in.
struct Rig {
    FakeEffect fake;
    std::unique_ptr<PluginHost> host = std::make_unique<PluginHost>();

    Rig() {
        fake.withParameters(std::vector<float>(10, -1.0f));
        EXPECT_TRUE(attachEffect(*host, &fake.effect));
        fake.calls.clear();
    }
};

std::vector<uint8_t> floatBytes(const std::vector<float>& values, size_t length) {
    std::vector<uint8_t> bytes(length, 0);
    std::memcpy(bytes.data(), values.data(), std::min(length, values.size() * sizeof(float)));
    return bytes;
}

struct ParameterCase {
    const char* name;
    size_t length;
    size_t parametersSet;
};

class ParameterLayout : public testing::TestWithParam<ParameterCase> {};

TEST_P(ParameterLayout, SetsWholeValuesUpToTheParameterCount) {
    Rig rig;
    std::vector<float> values(12);
    for (size_t i = 0; i < values.size(); ++i)
        values[i] = 0.1f * static_cast<float>(i + 1);
    const auto bytes = floatBytes(values, GetParam().length);

    loadState(*rig.host, bytes.data(), bytes.size());

    for (size_t i = 0; i < rig.fake.parameters.size(); ++i)
        EXPECT_EQ(rig.fake.parameters[i], i < GetParam().parametersSet ? values[i] : -1.0f)
            << "parameter " << i;
    EXPECT_EQ(rig.fake.parameterWrites.size(), GetParam().parametersSet);
}

INSTANTIATE_TEST_SUITE_P(Table, ParameterLayout,
                         testing::Values(ParameterCase{"ThreeValues", 12, 3},
                                         ParameterCase{"SixBytesIsOneValue", 6, 1},
                                         ParameterCase{"ThreeBytesIsNone", 3, 0},
                                         ParameterCase{"Exact", 40, 10},
                                         ParameterCase{"ExtraValuesIgnored", 48, 10},
                                         ParameterCase{"MisalignedLong", 45, 10}),
                         [](const auto& info) { return std::string(info.param.name); });

} // namespace
