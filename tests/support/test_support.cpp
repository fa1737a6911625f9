#include "support/test_support.hpp"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tervak_test {

namespace {
std::string slurp_fd(int fd) {
    std::string s;
    char buf[4096];
    lseek(fd, 0, SEEK_SET);
    ssize_t n;
    while ((n = read(fd, buf, sizeof buf)) > 0) s.append(buf, static_cast<size_t>(n));
    return s;
}
int temp_fd() {
    char name[] = "/tmp/tervak_testXXXXXX";
    int fd = mkstemp(name);
    unlink(name);
    return fd;
}
}  // namespace

std::string capture_stdout(const std::function<void()>& fn) {
    std::fflush(stdout);
    int saved = dup(1);
    int fd = temp_fd();
    dup2(fd, 1);
    fn();
    std::fflush(stdout);
    dup2(saved, 1);
    close(saved);
    std::string s = slurp_fd(fd);
    close(fd);
    return s;
}

ChildResult run_child(const std::function<void()>& fn) {
    std::fflush(stdout);
    std::fflush(stderr);
    int ofd = temp_fd();
    int efd = temp_fd();
    pid_t pid = fork();
    if (pid == 0) {
        dup2(ofd, 1);
        dup2(efd, 2);
        fn();
        std::fflush(stdout);
        std::_Exit(0);
    }
    int st = 0;
    waitpid(pid, &st, 0);
    ChildResult r;
    r.out = slurp_fd(ofd);
    r.err = slurp_fd(efd);
    r.status = WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st);
    close(ofd);
    close(efd);
    return r;
}

std::string run_command(const std::string& cmd, int* status) {
    std::string out;
    FILE* p = popen(cmd.c_str(), "r");
    if (!p) {
        if (status) *status = -1;
        return out;
    }
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, p)) > 0) out.append(buf, n);
    int st = pclose(p);
    if (status) *status = WIFEXITED(st) ? WEXITSTATUS(st) : -1;
    return out;
}

}  // namespace tervak_test
