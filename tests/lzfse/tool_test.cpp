// korv-lzfse, run as scripts run it.
#include "StreamEditing.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/wait.h>

namespace korv::lzfse {
namespace {

namespace fs = std::filesystem;
using test::Bytes;

class Tool : public ::testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "korv-lzfse-test-XXXXXX").string();
        ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
        dir = pattern;
    }
    void TearDown() override { fs::remove_all(dir); }

    int run(const std::string& args) const {
        const std::string command = std::string("'") + KORV_LZFSE_TOOL + "' " + args + " 2>/dev/null";
        const int status = std::system(command.c_str());
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    std::string path(const char* name) const { return "'" + (dir / name).string() + "'"; }
    void write(const char* name, const Bytes& data) const {
        std::ofstream(dir / name, std::ios::binary)
            .write(reinterpret_cast<const char*>(data.data()), static_cast<std::streamsize>(data.size()));
    }
    Bytes read(const char* name) const {
        std::ifstream in(dir / name, std::ios::binary);
        return Bytes(std::istreambuf_iterator<char>(in), {});
    }
    std::size_t fileCount() const {
        return static_cast<std::size_t>(std::distance(fs::directory_iterator(dir), {}));
    }

    fs::path dir;
};

TEST_F(Tool, RoundTripsAFileAndReadsReferenceStreams) {
    const Bytes raw = test::readVector("tile-photo", ".raw");
    write("in", raw);
    ASSERT_EQ(run("encode " + path("in") + " " + path("packed")), 0);
    ASSERT_EQ(run("decode " + path("packed") + " " + path("out")), 0);
    EXPECT_EQ(read("out"), raw);
    EXPECT_LT(read("packed").size(), raw.size());

    write("reference", test::readVector("tile-photo", ".lzfse"));
    ASSERT_EQ(run("decode " + path("reference") + " " + path("out")), 0);
    EXPECT_EQ(read("out"), raw);
}

TEST_F(Tool, LeavesNoOutputWhenItFails) {
    write("damaged", test::readVector("corrupt-short", ".lzfse"));
    write("cut", test::readVector("truncated", ".lzfse"));
    EXPECT_NE(run("decode " + path("damaged") + " " + path("out")), 0);
    EXPECT_NE(run("decode " + path("cut") + " " + path("out")), 0);
    EXPECT_NE(run("encode " + path("missing") + " " + path("out")), 0);
    EXPECT_FALSE(fs::exists(dir / "out"));
    EXPECT_EQ(fileCount(), 2u); // no temporary files left behind

    // An existing OUT is kept as it was.
    write("out", {'o', 'l', 'd'});
    EXPECT_NE(run("decode " + path("damaged") + " " + path("out")), 0);
    EXPECT_EQ(read("out"), (Bytes{'o', 'l', 'd'}));
    EXPECT_EQ(run("frobnicate " + path("damaged") + " " + path("out")), 2);
}

} // namespace
} // namespace korv::lzfse
