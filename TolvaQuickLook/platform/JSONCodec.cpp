// SPDX-License-Identifier: Apache-2.0
#include "platform/JSONCodec.hpp"

#include <cmath>

#include "platform/Base64.hpp"

namespace tolva {
namespace {

using std::chrono::nanoseconds;
using std::chrono::seconds;
using TimePoint = std::chrono::system_clock::time_point;

constexpr TimePoint epoch = std::chrono::sys_days(std::chrono::year(2001) / std::chrono::January / 1);

/// Whole seconds and the rest are turned apart: a double holds each of them better than their sum in nanoseconds.
double secondsSinceEpoch(TimePoint time) {
  auto const sinceEpoch = time - epoch;
  auto const whole = std::chrono::floor<seconds>(sinceEpoch);
  auto const rest = std::chrono::duration<double>(sinceEpoch - whole);
  return static_cast<double>(whole.count()) + rest.count();
}

bool fitsTimePoint(double sinceEpoch) {
  constexpr auto earliest = std::chrono::ceil<seconds>(TimePoint::min().time_since_epoch());
  constexpr auto latest = std::chrono::floor<seconds>(TimePoint::max() - epoch);
  return sinceEpoch > static_cast<double>(earliest.count()) && sinceEpoch < static_cast<double>(latest.count());
}

TimePoint timePoint(double sinceEpoch) {
  double const whole = std::floor(sinceEpoch);
  double const rest = sinceEpoch - whole;
  return epoch + seconds(std::llround(whole)) + nanoseconds(std::llround(rest * 1e9));
}

}  // namespace

void refuseJSON(std::string_view key, std::string_view expected) {
  std::string const subject = key.empty() ? "The JSON value" : "The value of \"" + std::string(key) + "\"";
  throw JSONError(subject + " is not a " + std::string(expected) + ".");
}

void refuseMissingKey(std::string_view key) { throw JSONError("The key \"" + std::string(key) + "\" is missing."); }

bool JSONForm<bool>::read(JSONValue const& value, std::string_view key) {
  auto const* const truth = value.asBoolean();
  if (!truth) refuseJSON(key, "truth value");
  return *truth;
}

double JSONForm<double>::read(JSONValue const& value, std::string_view key) {
  auto const real = value.asDouble();
  if (!real) refuseJSON(key, "number of double precision");
  return *real;
}

std::string JSONForm<std::string>::read(JSONValue const& value, std::string_view key) {
  auto const* const text = value.asString();
  if (!text) refuseJSON(key, "text");
  return *text;
}

Bytes JSONForm<Bytes>::read(JSONValue const& value, std::string_view key) {
  auto const* const text = value.asString();
  auto bytes = text ? bytesFromBase64(*text) : std::nullopt;
  if (!bytes) refuseJSON(key, "base64 text");
  return *std::move(bytes);
}

UUID JSONForm<UUID>::read(JSONValue const& value, std::string_view key) {
  auto const* const text = value.asString();
  auto const uuid = text ? UUID::parse(*text) : std::nullopt;
  if (!uuid) refuseJSON(key, "UUID");
  return *uuid;
}

void JSONForm<TimePoint>::write(TimePoint value, JSONWriter& out) { out.value(secondsSinceEpoch(value)); }

TimePoint JSONForm<TimePoint>::read(JSONValue const& value, std::string_view key) {
  auto const sinceEpoch = value.asDouble();
  if (!sinceEpoch || !fitsTimePoint(*sinceEpoch)) refuseJSON(key, "date");
  return timePoint(*sinceEpoch);
}

}  // namespace tolva
