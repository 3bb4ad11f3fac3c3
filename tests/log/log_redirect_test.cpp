#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "log/log.h"
#include "log_capture.h"

namespace {

using FileIds = std::vector<std::pair<dev_t, ino_t>>;

FileIds stream_ids() {
    FileIds ids;
    for (int fd = 0; fd < 3; ++fd) {
        struct stat st = {};
        fstat(fd, &st);
        ids.emplace_back(st.st_dev, st.st_ino);
    }
    return ids;
}

int open_descriptors() {
    DIR* dir = opendir("/proc/self/fd");
    int count = 0;
    while (readdir(dir) != nullptr) ++count;
    closedir(dir);
    return count;
}

struct TempFile {
    char path[32] = "/tmp/log_redirect_XXXXXX";
    TempFile() { close(mkstemp(path)); }
    ~TempFile() { unlink(path); }
    std::string text() const {
        std::ostringstream all;
        all << std::ifstream(path).rdbuf();
        return all.str();
    }
};

// A pseudo-terminal whose slave starts without line input, so the redirection has to
// switch it on. Opening the slave may make it the controlling terminal: ignore its hangup.
struct Pty {
    int master = posix_openpt(O_RDWR | O_NOCTTY);
    std::string slave;
    Pty() {
        signal(SIGHUP, SIG_IGN);
        if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0) return;
        slave = ptsname(master);
        const int fd = open(slave.c_str(), O_RDWR | O_NOCTTY);
        struct termios t;
        tcgetattr(fd, &t);
        t.c_iflag &= ~ICRNL;
        t.c_lflag &= ~(ISIG | ICANON);
        tcsetattr(fd, TCSANOW, &t);
        close(fd);
    }
    ~Pty() { close(master); }
};

TEST(LogRedirect, OutputGoesToAnExistingFileUntilClosed) {
    TempFile file;
    const FileIds before = stream_ids();
    EXPECT_EQ(log_redirection_output(nullptr), -1);
    EXPECT_EQ(log_redirection_output("/nonexistent/log.txt"), -3);
    EXPECT_EQ(stream_ids(), before);
    EXPECT_EQ(log_redirection_close(), 0);  // nothing to undo

    log_set_mode(1);  // no buffer: the line is lost and counted
    log_print_mod(1, LOG_LEVEL_INFO, "lost");
    ASSERT_EQ(log_get_loss_cnt(), 1u);
    ASSERT_EQ(log_redirection_output(file.path), 0);
    const unsigned loss = log_get_loss_cnt();
    log_set_mode(0);
    log_print_mod(1, LOG_LEVEL_INFO, "to file\n");
    fprintf(stderr, "stderr too\n");
    const int second = log_redirection_output(file.path);
    const int device = log_redirection_dev(file.path);
    const FileIds during = stream_ids();
    EXPECT_EQ(log_redirection_close(), 0);

    EXPECT_EQ(loss, 0u);
    EXPECT_EQ(second, -2);
    EXPECT_EQ(device, -2);
    EXPECT_EQ(during[0], before[0]);
    EXPECT_NE(during[1], before[1]);
    EXPECT_EQ(during[2], during[1]);
    EXPECT_EQ(stream_ids(), before);
    EXPECT_EQ(file.text(), "to file\nstderr too\n");

    // Not a terminal: reported, yet the redirection goes ahead.
    FdCapture out;
    EXPECT_EQ(log_redirection_dev(file.path), 0);
    EXPECT_EQ(log_redirection_close(), 0);
    out.restore();
    EXPECT_EQ(out.text(), "tcgetattr error.\r\n");
}

TEST(LogRedirect, TerminalDeviceGetsLineInputAndEveryCycleLeavesNoDescriptor) {
    TempFile file;
    Pty pty;
    ASSERT_FALSE(pty.slave.empty());
    const FileIds before = stream_ids();
    const int open_before = open_descriptors();
    ASSERT_EQ(log_redirection_dev(pty.slave.c_str()), 0);
    struct termios now = {};
    const int got = tcgetattr(0, &now);
    const FileIds during = stream_ids();
    log_print_mod(3, LOG_LEVEL_INFO, "on the terminal\n");
    const int second = log_redirection_output(file.path);
    EXPECT_EQ(log_redirection_close(), 0);

    EXPECT_EQ(got, 0);
    EXPECT_TRUE(now.c_iflag & ICRNL);
    EXPECT_EQ(now.c_lflag & (ISIG | ICANON), static_cast<tcflag_t>(ISIG | ICANON));
    EXPECT_EQ(second, -2);
    EXPECT_EQ(during, FileIds(3, during[0]));
    EXPECT_NE(during[1], before[1]);
    EXPECT_EQ(stream_ids(), before);
    struct pollfd ready = {pty.master, POLLIN, 0};
    ASSERT_EQ(poll(&ready, 1, 5000), 1);
    char seen[256] = {};
    ASSERT_GT(read(pty.master, seen, sizeof seen - 1), 0);
    EXPECT_EQ(std::string(seen), "on the terminal\r\n");  // the terminal turns \n into \r\n

    for (int i = 0; i < 50; ++i) {
        ASSERT_EQ(log_redirection_output(file.path), 0);
        ASSERT_EQ(log_redirection_dev(pty.slave.c_str()), -2);
        ASSERT_EQ(log_redirection_close(), 0);
        ASSERT_EQ(log_redirection_dev(pty.slave.c_str()), 0);
        ASSERT_EQ(log_redirection_close(), 0);
        ASSERT_EQ(log_redirection_dev("/nonexistent/tty"), -3);
    }
    EXPECT_EQ(open_descriptors(), open_before);
    EXPECT_EQ(stream_ids(), before);
}

}  // namespace
