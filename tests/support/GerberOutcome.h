#pragma once

// Everything a Gerber conversion leaves behind, for comparing two ways of
// converting the same text.
#include "HVX/App/Gerber.h"
#include "HVX/Base/Log.h"

#include "support/TestEnvironment.h"

#include <gtest/gtest.h>

#include <cstring>
#include <exception>
#include <string>
#include <vector>

namespace nrq::test {

struct GerberOutcome {
    GerberVertexData data;
    std::string log;
    std::string console;
    std::string error = "(no error)";
};

// Runs `convert` on a copy of `before`, with a fresh log and the console captured.
template <class Convert>
GerberOutcome CaptureGerber(Convert&& convert, const GerberVertexData& before = {}) {
    GerberOutcome outcome;
    outcome.data = before;
    Log::Init();
    testing::internal::CaptureStderr();
    try {
        convert(outcome.data);
    } catch (const std::exception& error) {
        outcome.error = error.what();
    }
    outcome.console = testing::internal::GetCapturedStderr();
    outcome.log = LogWithoutTimeStamps();
    return outcome;
}

// Bytes, not values: an arc back to its start has NaN coordinates.
template <class T>
bool SameGerberBytes(const std::vector<T>& a, const std::vector<T>& b) {
    return a.size() == b.size() && (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(T)) == 0);
}

inline void ExpectSameGerberOutcome(const GerberOutcome& expected, const GerberOutcome& actual,
                                    const std::string& what) {
    EXPECT_TRUE(SameGerberBytes(expected.data.vertices, actual.data.vertices)) << what;
    EXPECT_TRUE(SameGerberBytes(expected.data.indices, actual.data.indices)) << what;
    EXPECT_TRUE(SameGerberBytes(expected.data.fill, actual.data.fill)) << what;
    EXPECT_EQ(expected.log, actual.log) << what;
    EXPECT_EQ(expected.console, actual.console) << what;
    EXPECT_EQ(expected.error, actual.error) << what;
}

} // namespace nrq::test
