// vorn-mkfs against Debian's dosfstools and mtools as independent checkers: for each layout,
// every byte that mkfs.fat writes with the same options and volume id (the reserved sectors,
// the FATs, the root directory) is the same, except the time stamps of the label entry;
// fsck.fat finds the volume clean; files written with mmd/mcopy come back byte for byte. Bad
// input gets one line on the standard error, status 1, and the target as it was.

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

std::string tool(const std::string& name) {
    for (const char* dir : {"/usr/sbin/", "/sbin/", "/usr/bin/", "/bin/"}) {
        std::string p = dir + name;
        if (::access(p.c_str(), X_OK) == 0) return p;
    }
    return "";
}

std::vector<char> bytes(const std::string& path, size_t most = 4 << 20) {
    std::ifstream in(path, std::ios::binary);
    std::vector<char> b(most);
    in.read(b.data(), static_cast<std::streamsize>(most));
    b.resize(static_cast<size_t>(in.gcount()));
    return b;
}

uint32_t le(const std::vector<char>& b, size_t off, size_t n) {
    uint32_t v = 0;
    for (size_t i = n; i-- > 0;) v = v << 8 | static_cast<uint8_t>(b.at(off + i));
    return v;
}

// Zeroes the time stamps of a volume label entry first in the root directory.
void maskLabelTimes(std::vector<char>* b) {
    const uint32_t fat = le(*b, 22, 2) ? le(*b, 22, 2) : le(*b, 36, 4);
    const size_t root = (le(*b, 14, 2) + le(*b, 16, 1) * fat) * le(*b, 11, 2);
    if (root + 32 <= b->size() && (*b)[root + 11] == 0x08)
        std::fill(b->begin() + static_cast<long>(root) + 13,
                  b->begin() + static_cast<long>(root) + 26, 0);
}

class Mkfs : public ::testing::Test {
protected:
    void SetUp() override {
        char tmpl[] = "/tmp/vorn-mkfs-XXXXXX";
        ASSERT_NE(::mkdtemp(tmpl), nullptr);
        dir_ = tmpl;
    }
    void TearDown() override { sh("rm -rf '" + dir_ + "'"); }
    // Runs a shell command; returns its exit status, its standard error in *err.
    int sh(const std::string& cmd, std::string* err = nullptr) {
        int rc = std::system((cmd + " >'" + dir_ + "/out' 2>'" + dir_ + "/err'").c_str());
        if (err != nullptr) {
            std::vector<char> e = bytes(dir_ + "/err");
            err->assign(e.begin(), e.end());
        }
        return WIFEXITED(rc) ? WEXITSTATUS(rc) : -1;
    }
    std::string dir_;
};

TEST_F(Mkfs, MatchesMkfsFatAndHoldsFiles) {
    const std::string mkfsFat = tool("mkfs.fat"), fsck = tool("fsck.fat"), mcopy = tool("mcopy");
    if (mkfsFat.empty() || fsck.empty() || mcopy.empty())
        GTEST_SKIP() << "dosfstools and mtools are not installed (scripts/install-deps.sh)";
    const std::string mmd = tool("mmd");
    struct Case {
        const char* blocks;
        const char* options;
    };
    const Case cases[] = {
        {"1440", ""},                     // the 1.44 MB floppy
        {"1440", "-n VORN -r 112"},       //
        {"65536", ""},                    // FAT16
        {"65536", "-F 12 -R 5 -r 100"},   // FAT12 of 64-sector clusters, all aligned to them
        {"3000", "-s 1 -r 48 -n flash"},  // unaligned below 8192 sectors
        {"1048576", "-n CARD"},           // FAT32
        {"1048576", "-S 4096"},           // FAT32 on 4 KiB sectors
        {"1048576", "-F 16 -f 1"},        // FAT16 of 32-sector clusters
        {"131072", "-F 32 -s 1 -R 5"},    // backup boot sector behind FSInfo
        {"16384", "-s 1 -S 1024"},
        {"2064", "-F 12 -s 1 -r 304"},  // 4084 clusters: the most of FAT12
        {"2064", "-F 16 -s 1 -r 128"},  // 4087 clusters: the fewest of FAT16
    };
    std::ofstream(dir_ + "/f.bin") << std::string(150000, 'v') + "end";
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.blocks) + " " + c.options);
        const std::string opts = std::string(" -C -i 5eed0c4d ") + c.options + " ";
        const std::string a = dir_ + "/a.img", v = dir_ + "/v.img";
        sh("rm -f " + a + " " + v);
        ASSERT_EQ(sh(mkfsFat + opts + a + " " + c.blocks), 0);
        std::string err;
        ASSERT_EQ(sh(VORN_MKFS_PATH + opts + v + " " + c.blocks, &err), 0) << err;
        std::vector<char> mine = bytes(v), theirs = bytes(a);
        maskLabelTimes(&mine);
        maskLabelTimes(&theirs);
        EXPECT_TRUE(mine == theirs) << "the images differ";
        EXPECT_EQ(sh("test $(stat -c %s " + a + ") = $(stat -c %s " + v + ")"), 0);
        EXPECT_EQ(sh(fsck + " -n " + v), 0);
        EXPECT_EQ(sh(mmd + " -i " + v + " ::/d && " + mcopy + " -i " + v + " " + dir_ +
                     "/f.bin ::/d/f.bin && " + mcopy + " -n -i " + v + " ::/d/f.bin " + dir_ +
                     "/g.bin && cmp " + dir_ + "/f.bin " + dir_ + "/g.bin"),
                  0);
        EXPECT_EQ(sh(fsck + " -n " + v), 0);
    }
}

TEST_F(Mkfs, RefusesBadInputWithOneLineAndTouchesNothing) {
    struct Case {
        const char* args;  // T: an existing 4 MiB file; N: a path that does not exist
        int status;
        const char* says;
    };
    const Case cases[] = {
        {"-x T", 1, "unknown option '-x'"},
        {"-F 13 T", 1, "bad FAT type '13'"},
        {"-s 3 T", 1, "sectors per cluster 3 is not a power of two"},
        {"-F 32 T", 1, "do not fit FAT32"},
        {"-F 12 -s 1 -r 288 T 2064", 1, "4085 clusters of 1 sector do not fit FAT12"},
        {"-F 16 -s 1 -r 144 T 2064", 1, "4086 clusters of 1 sector do not fit FAT16"},
        {"-n TWELVE_CHARS T", 1, "longer than 11 characters"},
        {"N", 1, "No such file or directory"},
        {"-C -F 16 N 1440", 1, "do not fit FAT16"},
        {"-C T 1440", 1, "exists"},
        {"T 40", 1, "too small"},
        {"T 8192", 1, "holds 4096 blocks"},
        {"--help", 0, ""},
    };
    const std::string t = dir_ + "/t.img", n = dir_ + "/n.img";
    std::string pattern(4 << 20, '\0');
    for (size_t i = 0; i < pattern.size(); ++i) pattern[i] = static_cast<char>(i * 7 + i / 509);
    std::ofstream(t, std::ios::binary) << pattern;
    const std::vector<char> before = bytes(t, pattern.size());
    for (const Case& c : cases) {
        SCOPED_TRACE(c.args);
        std::string cmd = VORN_MKFS_PATH, err;
        std::istringstream words(c.args);
        for (std::string w; words >> w;) cmd += " " + (w == "T" ? t : w == "N" ? n : w);
        EXPECT_EQ(sh(cmd, &err), c.status);
        if (c.status != 0) {
            EXPECT_NE(err.find(c.says), std::string::npos) << err;
            EXPECT_EQ(err.find('\n'), err.size() - 1) << "not one line: " << err;
        }
        EXPECT_TRUE(bytes(t, pattern.size()) == before) << "the target changed";
        EXPECT_NE(::access(n.c_str(), F_OK), 0) << "a file was made";
    }
}

}  // namespace
