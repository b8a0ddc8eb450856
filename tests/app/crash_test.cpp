// The real program, killed with SIGKILL after an autosave, offers the copy on
// the next start and restores the change.
#include <cstdlib>
#ifdef KORV_LUMENARY_PATH
#include <chrono>
#include <filesystem>
#include <gtest/gtest.h>
#include <random>
#include <signal.h>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace {

class Program {
public:
    // Starts the editor offscreen with its folders under home; stdout is piped back.
    Program(const std::filesystem::path& home, std::vector<std::string> args) {
        int fds[2];
        if (pipe(fds) != 0) return;
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
        posix_spawn_file_actions_addclose(&actions, fds[0]);
        std::vector<std::string> env{"QT_QPA_PLATFORM=offscreen", "XDG_DATA_HOME=" + (home / "data").string(),
                                     "XDG_CONFIG_HOME=" + (home / "config").string(),
                                     "XDG_RUNTIME_DIR=" + home.string(), "HOME=" + home.string()};
        for (char** e = environ; *e; ++e) {
            const std::string entry = *e;
            if (entry.rfind("ASAN_OPTIONS=", 0) == 0 || entry.rfind("UBSAN_OPTIONS=", 0) == 0 ||
                entry.rfind("PATH=", 0) == 0)
                env.push_back(entry);
        }
        std::vector<char*> envp;
        for (auto& e : env)
            envp.push_back(e.data());
        envp.push_back(nullptr);
        args.insert(args.begin(), KORV_LUMENARY_PATH);
        std::vector<char*> argv;
        for (auto& a : args)
            argv.push_back(a.data());
        argv.push_back(nullptr);
        if (posix_spawn(&pid_, KORV_LUMENARY_PATH, &actions, nullptr, argv.data(), envp.data()) != 0)
            pid_ = -1;
        posix_spawn_file_actions_destroy(&actions);
        close(fds[1]);
        out_ = fds[0];
    }
    ~Program() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
        if (out_ >= 0) close(out_);
    }
    bool started() const { return pid_ > 0; }

    // The next line of output, or nothing at the end of it.
    std::optional<std::string> line() {
        std::string text;
        char c;
        while (read(out_, &c, 1) == 1) {
            if (c == '\n') return text;
            text += c;
        }
        if (text.empty()) return std::nullopt;
        return text;
    }
    int killAndWait() {
        kill(pid_, SIGKILL);
        return wait();
    }
    int wait() {
        int status = 0;
        waitpid(pid_, &status, 0);
        pid_ = -1;
        return status;
    }

private:
    pid_t pid_ = -1;
    int out_ = -1;
};

bool hasCopy(const std::filesystem::path& folder) {
    std::error_code ec;
    for (std::filesystem::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec))
        if (it->path().extension() == ".json") return true;
    return false;
}

TEST(CrashRecovery, AKilledSessionIsOfferedAndRestoredOnTheNextStart) {
    std::random_device random;
    const auto home = std::filesystem::temp_directory_path() / ("korv-crash-" + std::to_string(random()));
    std::filesystem::create_directories(home / "data");
    const auto autosave = home / "data" / "KORV Lumenary" / "Autosave";

    std::string fingerprint;
    {
        Program editor(home, {"--autosave-interval", "0.2", "--test-edit"});
        ASSERT_TRUE(editor.started());
        const auto edited = editor.line();
        ASSERT_TRUE(edited);
        ASSERT_EQ(edited->rfind("edited ", 0), 0u) << *edited;
        fingerprint = edited->substr(7);
        // The copy is written in the background; give it whatever time it takes.
        for (int i = 0; i < 1200 && !hasCopy(autosave); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        ASSERT_TRUE(hasCopy(autosave));
        const int status = editor.killAndWait();
        ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
    }
    {
        Program editor(home, {"--recover-all", "--print-sessions"});
        ASSERT_TRUE(editor.started());
        const auto session = editor.line();
        ASSERT_TRUE(session);
        EXPECT_EQ(*session, "session Crash Test (recovered)\t" + fingerprint + "\tdirty");
        EXPECT_FALSE(editor.line());
        const int status = editor.wait();
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    }
    EXPECT_TRUE(hasCopy(autosave)) << "the copy stays until the recovered picture is saved or closed";
    std::filesystem::remove_all(home);
}

} // namespace
#endif
