// SPDX-License-Identifier: Apache-2.0
#include "preview/JSONDescription.hpp"

#include <gtest/gtest.h>

#include "platform/JSONReader.hpp"

namespace tolva {
namespace {

struct DescriptionCase {
  char const* json;
  char const* text;
};

DescriptionCase const descriptions[] = {
    {"null", "null"},
    {"true", "true"},
    {"false", "false"},
    {R"("a\n\"b\"")", "a\n\"b\""},
    {R"("")", ""},
    {"0", "0"},
    {"-12", "-12"},
    {"9223372036854775807", "9223372036854775807"},
    {"5.0", "5"},
    {"1e3", "1000"},
    {"0.1", "0.1"},
    {"0.30000000000000004", "0.30000000000000004"},
    {"1.50", "1.5"},
    {"1e-7", "1e-07"},
    {"9223372036854775808", "9223372036854775808"},
    {"18446744073709551615", "18446744073709551615"},
    {"18446744073709551616", "1.8446744073709552e+19"},
    {"-9223372036854775808", "-9223372036854775808"},
    {"-9223372036854775809", "-9.223372036854776e+18"},
    {"-0", "0"},
    {"-0.0", "0"},
    {"1e300", "1e+300"},
    {"1e999", "1e999"},
    {"1e-300", "1e-300"},
    {"1e-400", "1e-400"},
    {"-0.10E-400", "-0.10E-400"},
    {"0.00e-400", "0"},
    {"[1]", ""},
    {"{}", ""},
};

TEST(JSONDescription, ReadsAsAPersonWouldSayIt) {
  for (DescriptionCase const& description : descriptions) {
    SCOPED_TRACE(description.json);
    EXPECT_EQ(jsonDescription(readJSON(description.json)), description.text);
  }
}

}  // namespace
}  // namespace tolva
