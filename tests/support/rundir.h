// A fresh, private run directory for one test, with the host platform reset around it.
#pragma once

#include <gtest/gtest.h>

#include <string>

namespace vorn::test {

class RunDir {
public:
    RunDir();
    ~RunDir();
    RunDir(const RunDir&) = delete;
    RunDir& operator=(const RunDir&) = delete;
    const std::string& path() const { return path_; }

private:
    std::string path_;
};

// Test fixture: every test gets its own run directory and a clean platform.
class PlatformTest : public ::testing::Test {
protected:
    RunDir rundir_;
};

// Polls cond every millisecond until it holds or timeoutMs passes.
template <typename F>
bool waitFor(F cond, int timeoutMs = 2000);

}  // namespace vorn::test

#include "support/rundir_impl.h"
