#include "support/rundir.h"

#include <cstdlib>
#include <filesystem>

#include "platform/cfgstore.h"
#include "platform/ipc.h"
#include "platform/mem.h"
#include "platform/shell.h"
#include "platform/swp.h"

namespace vorn::test {

RunDir::RunDir() {
    char tmpl[] = "/tmp/vorn-test-XXXXXX";
    const char* dir = mkdtemp(tmpl);
    if (dir == nullptr) throw std::runtime_error("mkdtemp failed");
    path_ = dir;
    host::resetSwpForTest();
    host::resetIpcForTest();
    host::resetMemForTest();
    shell::resetForTest();
    host::resetCfgStoreForTest();
    std::string err;
    if (!host::setRunDir(path_, &err)) throw std::runtime_error(err);
}

RunDir::~RunDir() {
    host::resetSwpForTest();
    host::resetIpcForTest();
    host::resetMemForTest();
    shell::resetForTest();
    host::resetCfgStoreForTest();
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
}

}  // namespace vorn::test
