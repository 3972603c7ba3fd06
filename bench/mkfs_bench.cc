// vorn-mkfs against Debian's mkfs.fat: each makes a fresh 1 GiB image file and formats it as
// FAT32 (-C -F 32), as a process started and waited for, wall clock from start to exit. The
// two alternate over five rounds after one untimed warm-up each; the figures are each round's
// times, the medians and the median of the rounds' ratios (goal: vorn-mkfs no slower, a ratio
// of at most 1.0). Exits 1 when the goal is missed, 2 when a format fails or mkfs.fat is not
// installed.

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

extern char** environ;

namespace {

constexpr int kRounds = 5;
constexpr const char* kBlocks = "1048576";  // 1 GiB in 1024-byte blocks

// Runs argv with its output to /dev/null; returns the wall time in milliseconds, or -1 when it
// did not exit with status 0.
double timed(const std::vector<std::string>& argv) {
    std::vector<char*> args;
    for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    posix_spawn_file_actions_t fa;
    posix_spawn_file_actions_init(&fa);
    posix_spawn_file_actions_addopen(&fa, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&fa, 2, "/dev/null", O_WRONLY, 0);
    const auto t0 = std::chrono::steady_clock::now();
    pid_t pid = 0;
    int status = -1;
    bool ok = posix_spawn(&pid, args[0], &fa, nullptr, args.data(), environ) == 0 &&
              waitpid(pid, &status, 0) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    const double ms =
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count();
    posix_spawn_file_actions_destroy(&fa);
    return ok ? ms : -1;
}

double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

}  // namespace

int main() {
    std::string mkfsFat;
    for (const char* p : {"/usr/sbin/mkfs.fat", "/sbin/mkfs.fat"})
        if (access(p, X_OK) == 0) mkfsFat = p;
    if (mkfsFat.empty()) {
        std::fprintf(stderr, "mkfs.fat is not installed (scripts/install-deps.sh)\n");
        return 2;
    }
    char tmpl[] = "/tmp/vorn-mkfsbench-XXXXXX";
    if (mkdtemp(tmpl) == nullptr) return 2;
    const std::string image = std::string(tmpl) + "/fat32.img";
    auto format = [&](const std::string& program) {
        unlink(image.c_str());
        double ms = timed({program, "-C", "-F", "32", image, kBlocks});
        unlink(image.c_str());
        return ms;
    };

    std::printf("formatting a fresh 1 GiB image as FAT32, %d rounds\n", kRounds);
    format(VORN_MKFS_PATH);
    format(mkfsFat);
    std::vector<double> ours, theirs, ratios;
    for (int round = 1; round <= kRounds; ++round) {
        double a = format(VORN_MKFS_PATH);
        double b = format(mkfsFat);
        if (a < 0 || b < 0) {
            std::fprintf(stderr, "round %d: %s failed\n", round, a < 0 ? "vorn-mkfs" : "mkfs.fat");
            rmdir(tmpl);
            return 2;
        }
        ours.push_back(a);
        theirs.push_back(b);
        ratios.push_back(a / b);
        std::printf("round %d: vorn-mkfs %7.2f ms   mkfs.fat %7.2f ms   ratio %.2f\n", round, a, b,
                    a / b);
    }
    rmdir(tmpl);
    const double ratio = median(ratios);
    std::printf("median:  vorn-mkfs %7.2f ms   mkfs.fat %7.2f ms\n", median(ours), median(theirs));
    std::printf("median ratio vorn-mkfs / mkfs.fat: %.2f (goal <= 1.00): %s\n", ratio,
                ratio <= 1.0 ? "met" : "MISSED");
    return ratio <= 1.0 ? 0 : 1;
}
