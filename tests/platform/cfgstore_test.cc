// The configuration store: one line per key, the print order of both files, removal by key,
// the atomic rewrite before the process next sends and what happens when a file cannot be written.
#include "platform/cfgstore.h"

#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "platform/codec.h"
#include "platform/ipc.h"
#include "support/rundir.h"

namespace {

namespace fs = std::filesystem;
using vorn::test::PlatformTest;

QelCfgRecord ringLine(uint16_t ring, uint32_t command, uint16_t index, std::string text) {
    return {.ringId = ring, .commandId = command, .lineIndex = index, .text = std::move(text)};
}
QelCfgRecord debugEntry(uint16_t ring, uint32_t type, uint32_t mode, std::string text) {
    return {.section = QelCfgSection::kDebug,
            .ringId = ring,
            .debugType = type,
            .debugMode = mode,
            .text = std::move(text)};
}
class CfgStoreTest : public PlatformTest {
protected:
    void SetUp() override { vorn::host::resetCfgStoreForTest(); }
    void TearDown() override { vorn::host::resetCfgStoreForTest(); }
    // The file as it is on disk, without asking the store to commit first.
    std::string onDisk(const char* name) const {
        std::ifstream in(rundir_.path() + "/" + name, std::ios::binary);
        std::stringstream ss;
        ss << in.rdbuf();
        return ss.str();
    }
    // The file as a reader sees it once the manager has answered someone.
    std::string file(const char* name) const {
        vorn::host::cfgStoreCommit();
        return onDisk(name);
    }
    std::string running() const { return file("running-config"); }
    std::string debug() const { return file("debug-config"); }
    // Every entry of the run directory but the two files.
    std::vector<std::string> strayFiles() const {
        std::vector<std::string> out;
        for (const auto& e : fs::directory_iterator(rundir_.path())) {
            std::string n = e.path().filename();
            if (n != "running-config" && n != "debug-config") out.push_back(n);
        }
        return out;
    }
};

TEST_F(CfgStoreTest, LinesPrintInRingAndCommandOrderEachInItsFile) {
    // Inserted out of order: ring 9 before ring 2, commands and member lines scrambled.
    const QelCfgRecord lines[] = {
        ringLine(9, 0, 0, "ring9"), ringLine(2, 5, 0, "enable"), ringLine(2, 3, 2, "mv2"),
        ringLine(2, 6, 0, "dead"),  ringLine(2, 0, 0, "ring2"),  ringLine(2, 7, 0, "hello"),
        ringLine(2, 3, 1, "mv1"),   ringLine(2, 4, 0, "mode"),   ringLine(2, 2, 0, "ifs"),
        ringLine(2, 1, 0, "desc"),  ringLine(2, 3, 10, "mv10"),  ringLine(9, 4, 0, "mode9"),
    };
    for (const auto& l : lines) ASSERT_EQ(qelCfgInsert(0, l), 0);
    // A debug entry with a ring line's numbers is another key, in the other file. (The debug
    // file's header and order are the debug-configuration test's, in the show tests.)
    ASSERT_EQ(qelCfgInsert(0, debugEntry(9, 0, 0, " zero")), 0);
    EXPECT_EQ(running(),
              "ring2\r\ndesc\r\nifs\r\nmv1\r\nmv2\r\nmv10\r\nmode\r\nhello\r\ndead\r\nenable\r\n"
              "ring9\r\nmode9\r\n");
    EXPECT_EQ(vorn::host::cfgRunningConfigText(), running());
    EXPECT_EQ(debug(), " zero\r\n");
    EXPECT_EQ(vorn::host::cfgDebugConfigText(), debug());
    EXPECT_TRUE(strayFiles().empty());
}

TEST_F(CfgStoreTest, OneLinePerKeyAndRemovalByKeyAlone) {
    const struct {
        const char* name;
        bool insert;  // else remove
        QelCfgRecord rec;
        int result;
        std::string file;  // running-config afterwards
    } steps[] = {
        {"mode", true, ringLine(4, 4, 0, " mode master "), 0, " mode master \r\n"},
        {"same key replaces", true, ringLine(4, 4, 0, " mode transit "), 0, " mode transit \r\n"},
        {"another line index is another key", true, ringLine(4, 4, 1, "x"), 0,
         " mode transit \r\nx\r\n"},
        {"removal text differs", false, ringLine(4, 4, 0, "mode transit  "), 0, "x\r\n"},
        {"no such line", false, ringLine(4, 4, 0, ""), -1, "x\r\n"},
        {"other ring", false, ringLine(5, 4, 1, "x"), -1, "x\r\n"},
        {"empty text", true, ringLine(4, 0, 0, ""), 0, "\r\nx\r\n"},
    };
    for (const auto& s : steps) {
        SCOPED_TRACE(s.name);
        EXPECT_EQ(s.insert ? qelCfgInsert(7, s.rec) : qelCfgRemoveExact(7, s.rec), s.result);
        EXPECT_EQ(running(), s.file);
    }
}

TEST_F(CfgStoreTest, ChangesReachTheFilesAtTheCommitOnlyAndAFailedWriteStaysDue) {
    const std::string running = rundir_.path() + "/running-config";
    EXPECT_EQ(qelCfgInsert(-1, ringLine(1, 0, 0, "refused")), -1);  // a failed task key
    EXPECT_EQ(qelCfgSync(-1), -1);
    EXPECT_EQ(qelCfgInsert(0, ringLine(1, 0, 0, "a")), 0);
    EXPECT_EQ(qelCfgInsert(0, ringLine(2, 0, 0, "b")), 0);
    EXPECT_FALSE(fs::exists(running)) << "written per change";
    // A directory in the file's place: the rename onto it fails, whoever runs the test.
    fs::create_directory(running);
    EXPECT_FALSE(vorn::host::cfgStoreCommit());
    EXPECT_TRUE(strayFiles().empty());  // the temporary file is gone
    fs::remove(running);
    EXPECT_TRUE(vorn::host::cfgStoreCommit()) << "the failed file stays due for writing";
    EXPECT_EQ(onDisk("running-config"), "a\r\nb\r\n");
    EXPECT_FALSE(fs::exists(rundir_.path() + "/debug-config")) << "only changed files are written";
    EXPECT_EQ(qelCfgSync(0), 0);  // both files, changed or not
    EXPECT_TRUE(fs::exists(rundir_.path() + "/debug-config"));
}

}  // namespace
