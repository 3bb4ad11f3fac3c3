// The preview server's guards and its saving, without a socket.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "tools/runner/serve.h"

namespace preview {
namespace {

TEST(Serve, HostOriginTokenAndListen) {
    const struct {
        const char* host;
        bool allowed;
    } hosts[] = {{"127.0.0.1:8700", true},     {"localhost:8700", true},
                 {"[::1]:8700", true},         {"192.168.1.20:8700", true},
                 {"127.0.0.1:9000", true},     {"127.0.0.1", false},
                 {"127.0.0.1:", false},        {"127.0.0.1:80x", false},
                 {"evil.example:8700", false}, {"127.0.0.1.evil.example:8700", false},
                 {"[::1]x:8700", false},       {"256.0.0.1:8700", false},
                 {"1.2.3:8700", false},        {"", false}};
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

TEST_F(Folder, SavingKeepsTheFormerContentAndTheMode) {
    const std::string path = m_dir + "/algo_private.json";
    std::string reason;
    ASSERT_TRUE(SaveFile(path, "first", reason)) << reason;
    EXPECT_EQ(access((path + "~").c_str(), F_OK), -1);  // nothing to keep yet
    ASSERT_EQ(chmod(path.c_str(), 0600), 0);
    ASSERT_TRUE(SaveFile(path, "second", reason)) << reason;
    EXPECT_EQ(Read(path), "second");
    EXPECT_EQ(Read(path + "~"), "first");
    struct stat info;
    ASSERT_EQ(stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
    ASSERT_TRUE(SaveFile(path, "third", reason)) << reason;
    EXPECT_EQ(Read(path + "~"), "second");  // one backup, the latest
    EXPECT_FALSE(SaveFile(m_dir + "/missing/a.json", "x", reason));
    EXPECT_EQ(reason, "No such file or directory");
}

}  // namespace
}  // namespace preview
