// Start-up time of the application: from the moment a new process is
// spawned to the moment its main window is on the screen (exposed).
//
// The benchmark spawns itself with "--child": the child does what tavroGui's
// main does (resources, options, application, main window, init, show),
// waits for the window to be exposed and prints the monotonic clock. The
// time therefore covers exec, loading the libraries, static initialisation,
// the toolkit's start and building every page. Without a display the child
// uses the offscreen platform.

#include "gui.h"
#include "guioptions.h"

#include <benchmark/benchmark.h>

#include <QApplication>
#include <QWindow>

#include <spawn.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

extern char** environ;

// At global scope: the macro declares the bundle's function.
static void resourcesInit() {
    Q_INIT_RESOURCE(tavro);
}

namespace {

int64_t nowNs() {
    timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return int64_t(t.tv_sec) * 1000000000 + t.tv_nsec;
}

// The child: tavroGui's start-up, then the time the window was exposed.
int child(int argc, char** argv) {
    resourcesInit();
    GuiOptions options;
    int status = guiParseOptions(argc, argv, options);
    if (status >= 0)
        return status;
    QApplication app(argc, argv);
    Gui gui;
    gui.init("Tavro", options.ttyDevice, options.cal, options.demo, options.dev);
    gui.show();
    while (!gui.windowHandle() || !gui.windowHandle()->isExposed())
        app.processEvents(QEventLoop::AllEvents, 5);
    printf("%lld\n", (long long)nowNs());
    fflush(stdout);
    return 0;
}

std::string selfPath;
std::string workDir;

// Spawns the child with the given options; the time from spawn to shown.
bool startOnce(const std::vector<std::string>& options, double& seconds) {
    int fds[2];
    if (pipe(fds))
        return false;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fds[1], 1);
    posix_spawn_file_actions_addclose(&actions, fds[0]);
    posix_spawn_file_actions_addclose(&actions, fds[1]);

    std::vector<std::string> words{selfPath, "--child"};
    words.insert(words.end(), options.begin(), options.end());
    std::vector<char*> argv;
    for (std::string& w : words)
        argv.push_back(&w[0]);
    argv.push_back(nullptr);

    pid_t pid;
    int64_t start = nowNs();
    int err = posix_spawn(&pid, selfPath.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(fds[1]);
    if (err) {
        close(fds[0]);
        return false;
    }
    char text[64] = {0};
    ssize_t n = read(fds[0], text, sizeof(text) - 1);
    close(fds[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    if (n <= 0 || !WIFEXITED(status) || WEXITSTATUS(status) != 0)
        return false;
    seconds = double(strtoll(text, nullptr, 10) - start) / 1e9;
    return true;
}

void startup(benchmark::State& state, std::vector<std::string> options) {
    for (auto _ : state) {
        double seconds = 0;
        if (!startOnce(options, seconds)) {
            state.SkipWithError("the child did not show its window");
            return;
        }
        state.SetIterationTime(seconds);
    }
}

} // namespace

BENCHMARK_CAPTURE(startup, default_pages, std::vector<std::string>())
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(10);
BENCHMARK_CAPTURE(startup, all_pages, std::vector<std::string>{"-dev", "1", "-demo", "-cal"})
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(10);

int main(int argc, char** argv) {
    if (argc > 1 && std::string(argv[1]) == "--child") {
        // The child's own command line starts after "--child".
        argv[1] = argv[0];
        return child(argc - 1, argv + 1);
    }

    char path[4096];
    ssize_t n = readlink("/proc/self/exe", path, sizeof(path) - 1);
    if (n <= 0)
        return 1;
    path[n] = 0;
    selfPath = path;
    // The children get a settings folder and working folder of their own.
    char dir[] = "/tmp/startup_bench.XXXXXX";
    if (!mkdtemp(dir))
        return 1;
    workDir = dir;
    setenv("XDG_CONFIG_HOME", (workDir + "/config").c_str(), 1);
    if (!getenv("DISPLAY") && !getenv("WAYLAND_DISPLAY"))
        setenv("QT_QPA_PLATFORM", "offscreen", 0);
    if (chdir(dir))
        return 1;

    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    std::string clean = "rm -rf '" + workDir + "'";
    return system(clean.c_str()) == 0 ? 0 : 1;
}
