// Task services: the run directory of a platform program, its one task thread, and the clean
// exit on SIGTERM and SIGINT. The command line is read in host_options.cc.

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/files.h"
#include "platform/ipc.h"
#include "platform/ipc_internal.h"

namespace vorn::host {
namespace {

// Task table: the host runs one named task per spawn; its service and instance come
// from the platform's table of known task names.
struct TaskInfo {
    std::string name;
    int service = 0;
    int instance = 0;
    bool ready = false;
};
std::mutex gTaskMutex;
std::vector<TaskInfo> gTasks;
thread_local long tCurrentTaskKey = -1;

constexpr long kTaskKeyBase = 0x10000000;

int serviceOfTaskName(const std::string& name) {
    if (name == "vorn") return ipc::kSvcManager;
    return 0;
}

}  // namespace

std::string defaultRunDir() {
    return "/tmp/vorn-" + std::to_string(getuid());
}

bool setRunDir(const std::string& dir, std::string* err) {
    if (dir.empty() || dir.size() > 80) {
        // Socket paths must fit sockaddr_un (108 bytes) with "/226.0.1" and the like.
        *err = "run directory '" + dir + "' is empty or longer than 80 characters";
        return false;
    }
    if (!checkRunDir(dir, err)) return false;
    mutableOptions().rundir = dir;
    return true;
}

namespace {
std::string gLockPath;
}  // namespace

bool lockService(int service, int instance, std::string* err) {
    std::string path =
        options().rundir + "/" + std::to_string(service) + "." + std::to_string(instance) + ".lock";
    int fd = open(path.c_str(), O_RDWR | O_CREAT | kRunDirOpenFlags, 0600);
    if (fd < 0) {
        *err = "cannot open lock file " + path + ": " + std::strerror(errno);
        return false;
    }
    if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
        char pid[32] = {0};
        ssize_t n = pread(fd, pid, sizeof(pid) - 1, 0);
        close(fd);
        std::string holder = n > 0 ? std::string(pid, static_cast<size_t>(n)) : "?";
        while (!holder.empty() && (holder.back() == '\n' || holder.back() == ' '))
            holder.pop_back();
        *err = "another process (pid " + holder + ") already runs service " +
               std::to_string(service) + "." + std::to_string(instance) + " in " +
               options().rundir + "; refusing to start";
        return false;
    }
    std::string pid = std::to_string(getpid()) + "\n";
    if (ftruncate(fd, 0) != 0 || pwrite(fd, pid.data(), pid.size(), 0) < 0) {
        *err = "cannot write lock file " + path + ": " + std::strerror(errno);
        close(fd);
        return false;
    }
    gLockPath = path;  // the descriptor stays open, holding the lock, until the process ends
    return true;
}

void releaseServiceLock() {
    if (!gLockPath.empty()) unlink(gLockPath.c_str());
}

}  // namespace vorn::host

using namespace vorn;

long taskSpawn(const char* name, int /*priority*/, int /*options*/, int /*stackSize*/,
               QelTaskEntry entry, intptr_t arg1, intptr_t arg2, intptr_t /*arg3*/) {
    if (entry == nullptr || name == nullptr) return -1;
    long key;
    {
        std::lock_guard<std::mutex> lock(host::gTaskMutex);
        host::gTasks.push_back({name, host::serviceOfTaskName(name), 0, false});
        key = host::kTaskKeyBase + static_cast<long>(host::gTasks.size());
    }
    std::thread([key, entry, arg1, arg2] {
        host::tCurrentTaskKey = key;
        entry(arg1, arg2);
    }).detach();
    return key;
}

int qelDdbInit(char** /*argv*/) {
    host::enableShellService(true);
    return 0;
}

QelKey qelTaskStartup(intptr_t, intptr_t, int) {
    return host::tCurrentTaskKey;
}

namespace {
host::TaskInfo* taskByKey(QelKey key) {
    long idx = key - host::kTaskKeyBase - 1;
    if (idx < 0 || idx >= static_cast<long>(host::gTasks.size())) return nullptr;
    return &host::gTasks[static_cast<size_t>(idx)];
}
}  // namespace

int qelTaskReady(QelKey taskKey) {
    std::lock_guard<std::mutex> lock(host::gTaskMutex);
    host::TaskInfo* t = taskByKey(taskKey);
    if (t == nullptr) return -1;
    t->ready = true;
    return 0;
}

int qelTaskGetServiceByKey(QelKey taskKey) {
    std::lock_guard<std::mutex> lock(host::gTaskMutex);
    host::TaskInfo* t = taskByKey(taskKey);
    return t == nullptr ? -1 : t->service;
}

int qelTaskGetInstanceByKey(QelKey taskKey) {
    std::lock_guard<std::mutex> lock(host::gTaskMutex);
    host::TaskInfo* t = taskByKey(taskKey);
    return t == nullptr ? -1 : t->instance;
}

long taskIdSelf() {
    return static_cast<long>(syscall(SYS_gettid));
}

int sysClkRateGet() {
    return 100;
}

int taskDelay(int ticks) {
    if (ticks <= 0) {
        std::this_thread::yield();
        return 0;
    }
    int ms = static_cast<int>(ticks * 1000L / sysClkRateGet());
    // A task that waits (a registration retry, say) still answers the debug shell, so an
    // operator can watch it retry.
    // A stop asked for meanwhile ends the wait, and the program, at once.
    if (host::tCurrentTaskKey != -1 && host::shellServiceEnabled()) {
        host::serveShellFor(ms);
    } else if (host::stopEventFd() >= 0) {
        pollfd p{host::stopEventFd(), POLLIN, 0};
        poll(&p, 1, ms);
    } else {
        std::this_thread::sleep_for(std::chrono::milliseconds(ms));
    }
    if (host::tCurrentTaskKey != -1 && host::stopRequested()) host::stopNow();
    return 0;
}
