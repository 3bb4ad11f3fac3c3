// The preview server's guards and its saving, without a socket.
#include <dirent.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include "tools/runner/base/files.h"
#include "tools/runner/serve/child.h"
#include "tools/runner/serve/serve.h"

namespace preview {
namespace {

TEST(Serve, HostOriginTokenAndListen) {
    const struct {
        const char* host;
        bool allowed;
    } hosts[] = {{"127.0.0.1:8700", true},
                 {"localhost:8700", true},
                 {"[::1]:8700", true},
                 {"192.168.1.20:8700", true},
                 {"127.0.0.1:9000", true},
                 {"127.0.0.1", true},
                 {"[::1]", true},
                 {"localhost", true},
                 {"127.0.0.1:", false},
                 {"127.0.0.1:80x", false},
                 {"evil.example:8700", false},
                 {"127.0.0.1.evil.example:8700", false},
                 {"[::1]x:8700", false},
                 {"256.0.0.1:8700", false},
                 {"1.2.3:8700", false},
                 {"", false}};
    for (const auto& h : hosts) EXPECT_EQ(HostAllowed(h.host), h.allowed) << h.host;

    EXPECT_TRUE(OriginAllowed("", "127.0.0.1:8700"));
    EXPECT_TRUE(OriginAllowed("http://127.0.0.1:8700", "127.0.0.1:8700"));
    EXPECT_FALSE(OriginAllowed("http://evil.example", "127.0.0.1:8700"));
    EXPECT_FALSE(OriginAllowed("null", "127.0.0.1:8700"));

    EXPECT_TRUE(TokenMatches("abc123", "abc123"));
    for (const char* wrong : {"", "abc12", "abc1234", "abc124", "ABC123"}) {
        EXPECT_FALSE(TokenMatches(wrong, "abc123")) << wrong;
    }
    EXPECT_FALSE(TokenMatches("", ""));  // a server without a token lets nobody in

    std::string address;
    int port = -1;
    EXPECT_TRUE(ParseListen("0.0.0.0:0", address, port));
    EXPECT_EQ(address + ":" + std::to_string(port), "0.0.0.0:0");
    EXPECT_TRUE(ParseListen("[::1]:9000", address, port));
    EXPECT_EQ(address, "::1");
    for (const char* bad : {"8700", "host:", ":8700", "h:65536", "h:12x", "h:99999999999"}) {
        EXPECT_FALSE(ParseListen(bad, address, port)) << bad;
    }
}

std::string Read(const std::string& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

class Folder : public ::testing::Test {
  protected:
    void SetUp() override {
        char name[] = "/tmp/formatv2-serve-XXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        char real[PATH_MAX];
        ASSERT_NE(realpath(name, real), nullptr);
        m_root = real;
        m_dir = m_root + "/served";
        ASSERT_EQ(mkdir(m_dir.c_str(), 0755), 0);
        ASSERT_EQ(mkdir((m_dir + "/sub").c_str(), 0755), 0);
        std::ofstream(m_root + "/outside.json") << "{}";
        ASSERT_EQ(symlink((m_root + "/outside.json").c_str(), (m_dir + "/out.json").c_str()), 0);
        ASSERT_EQ(symlink(m_root.c_str(), (m_dir + "/up").c_str()), 0);
        ASSERT_EQ(symlink("sub", (m_dir + "/in").c_str()), 0);
    }
    void TearDown() override { std::system(("rm -rf '" + m_root + "'").c_str()); }
    std::string m_root;
    std::string m_dir;
};

TEST_F(Folder, PathsStayInside) {
    const struct {
        const char* name;
        bool inside;
    } names[] = {{"algo_private.json", true},
                 {"sub/a.json", true},
                 {"in/a.json", true},
                 {"a..json", true},
                 {"..", false},
                 {"../outside.json", false},
                 {"sub/../../x", false},
                 {"sub/..", false},
                 {"/etc/passwd", false},
                 {"", false},
                 {"out.json", false},
                 {"up/outside.json", false},
                 {"missing/a.json", false}};
    for (const auto& n : names) {
        std::string path;
        std::string reason;
        EXPECT_EQ(PathInside(m_dir, n.name, path, reason), n.inside) << n.name << ": " << reason;
        if (n.inside) {
            EXPECT_EQ(path, m_dir + "/" + n.name);
        }
    }
}

TEST_F(Folder, ReadsStayInsideAndReadOnlyRegularFiles) {
    std::ofstream(m_dir + "/sub/a.json") << "inside";
    ASSERT_EQ(mkfifo((m_dir + "/fifo.json").c_str(), 0644), 0);
    ASSERT_EQ(symlink("/dev/zero", (m_dir + "/zero.json").c_str()), 0);
    const struct {
        std::string path;
        const char* reason;  // "" when read
    } reads[] = {{m_dir + "/sub/a.json", ""},
                 {m_dir + "/in/a.json", ""},
                 {m_dir + "/sub/../sub/a.json", ""},
                 {m_dir + "/out.json", "outside the folder served"},
                 {m_dir + "/../outside.json", "outside the folder served"},
                 {m_root + "/missing.json", "outside the folder served"},
                 {"/etc/passwd", "outside the folder served"},
                 {m_dir + "/fifo.json", "not a regular file"},  // would block a plain read
                 {m_dir + "/zero.json", "outside the folder served"},
                 {m_dir + "/sub", "a folder"},
                 {m_dir + "/missing.json", "No such file"}};
    for (const auto& r : reads) {
        std::string text;
        std::string reason;
        EXPECT_EQ(ReadInside(m_dir, r.path, text, reason), *r.reason == '\0') << r.path;
        EXPECT_NE(reason.find(r.reason), std::string::npos) << r.path << ": " << reason;
        if (*r.reason == '\0') {
            EXPECT_EQ(text, "inside");
        }
    }
}

TEST_F(Folder, SavingKeepsTheFormerContentAndTheMode) {
    const std::string path = m_dir + "/algo_private.json";
    std::string reason;
    const WriteOptions backup{true};
    ASSERT_TRUE(WriteFile(path, "first", reason, backup)) << reason;
    EXPECT_EQ(access((path + "~").c_str(), F_OK), -1);  // nothing to keep yet
    ASSERT_EQ(chmod(path.c_str(), 0600), 0);
    ASSERT_TRUE(WriteFile(path, "second", reason, backup)) << reason;
    EXPECT_EQ(Read(path), "second");
    EXPECT_EQ(Read(path + "~"), "first");
    struct stat info;
    ASSERT_EQ(stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
    ASSERT_TRUE(WriteFile(path, "third", reason, backup)) << reason;
    EXPECT_EQ(Read(path + "~"), "second");  // one backup, the latest
    ASSERT_TRUE(WriteFile(path, "fourth", reason)) << reason;
    EXPECT_EQ(Read(path + "~"), "second");  // a report keeps none
    EXPECT_FALSE(WriteFile(m_dir + "/missing/a.json", "x", reason));
    EXPECT_EQ(reason, "No such file or directory");
}

// The disk fills up mid-write (a file size limit stands in for it): the old content stays,
// and no temporary file is left.
TEST_F(Folder, AFullDiskLosesNothing) {
    const std::string path = m_dir + "/report.xml";
    std::ofstream(path) << "old";
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        signal(SIGXFSZ, SIG_IGN);
        const struct rlimit limit = {64, 64};
        setrlimit(RLIMIT_FSIZE, &limit);
        std::string reason;
        const bool written = WriteFile(path, std::string(4096, 'x'), reason);
        _exit(!written && reason == std::strerror(EFBIG) ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_EQ(Read(path), "old");
    size_t files = 0;
    DIR* dir = opendir(m_dir.c_str());
    while (const dirent* entry = readdir(dir)) files += entry->d_name[0] != '.';
    closedir(dir);
    EXPECT_EQ(files, 5u);  // sub, out.json, up, in and report.xml: no temporary file
}

size_t OpenDescriptors() {
    size_t n = 0;
    DIR* dir = opendir("/proc/self/fd");
    while (readdir(dir) != nullptr) ++n;
    closedir(dir);
    return n;
}

// Children that flood, hang, fail or cannot start: each ends within its limits with its own
// reason, and no descriptor stays open.
TEST(Child, EndsWithinItsLimits) {
    ChildLimits limits;
    limits.seconds = 1;
    limits.outputBytes = 1 << 20;
    const std::string big(3 << 19, 'x');  // 1.5 MiB through non-blocking pipes both ways
    const std::string part = big.substr(0, 900000);
    const std::string none;
    const struct {
        const char* program;
        const char* argument;
        const std::string& input;
        const char* problem;  // "" when none
    } cases[] = {{"/bin/cat", "-", part, ""},
                 {"/bin/cat", "-", big, "larger than 1 MiB"},
                 {"/usr/bin/yes", "y", none, "larger than 1 MiB"},
                 {"/bin/sleep", "30", none, "did not end within 1 s"},
                 {"/bin/false", "x", none, "the evaluation failed"},
                 {"/nonexistent/program", "x", none, "cannot start the evaluation"}};
    const size_t before = OpenDescriptors();
    for (const auto& c : cases) {
        const auto start = std::chrono::steady_clock::now();
        const ChildOutcome o = RunChild(c.program, c.argument, c.input, limits);
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3)) << c.program;
        EXPECT_NE(o.problem.find(c.problem), std::string::npos) << c.program << ": " << o.problem;
        if (*c.problem == '\0') {
            EXPECT_EQ(o.out, part);
        }
    }
    EXPECT_EQ(OpenDescriptors(), before);
}

}  // namespace
}  // namespace preview
