// Edits of all points of a store, through its journal: seconds, and the memory at peak. The argument is the
// store, which is edited, and has its points as before at the end.

#include <VelOsgDBBrx/EditSession.h>
#include <VelOsgDBBrx/OpenCloud.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <thread>

using namespace VelOsgDBBrx;

namespace {

/// Megabytes of a line of /proc/self/status.
double statusLine(const std::string& name)
{
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind(name + ":", 0) == 0) return std::stod(line.substr(name.size() + 1)) / 1024;
    return 0;
}

/// Follows the memory of the process's own, without pages of files, while it lives.
class OwnMemory
{
public:
    OwnMemory()
    {
        std::ofstream("/proc/self/clear_refs") << "5"; // VmHWM begins anew
        _thread = std::thread([this] {
            for (; !_ends; std::this_thread::sleep_for(std::chrono::milliseconds(10)))
                _peak = std::max(_peak.load(), statusLine("RssAnon"));
        });
    }
    ~OwnMemory()
    {
        _ends = true;
        _thread.join();
    }
    double peak() const { return _peak; }

private:
    std::atomic<bool> _ends{false};
    std::atomic<double> _peak{0};
    std::thread _thread;
};

template <class Begin>
bool measure(const char* name, EditSession& session, Begin begin)
{
    const OwnMemory memory;
    const auto start = std::chrono::steady_clock::now();
    begin();
    const EditOutcome outcome = session.wait();
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    std::printf("%-10s %12llu points %8.1f s %8.1f MB of its own, %8.1f MB with mapped files\n", name,
                static_cast<unsigned long long>(outcome.points), took.count(), memory.peak(),
                statusLine("VmHWM"));
    if (!outcome.ok) std::printf("%s\n", outcome.message.c_str());
    return outcome.ok;
}

} // namespace

int main(int argc, char** argv)
{
    OpenedCloud opened;
    if (argc != 2) {
        std::fprintf(stderr, "usage: bench_large_edit STORE\n");
        return 2;
    }
    if (const VelBrx::Status status = openCloud(argv[1], {}, opened); !status) {
        std::fprintf(stderr, "%s\n", status.message().c_str());
        return 1;
    }
    EditSession session("bench");
    std::string note;
    if (const VelBrx::Status status = session.addCloud(*opened.cloud->getOctree(), note); !status) {
        std::fprintf(stderr, "%s\n", status.message().c_str());
        return 1;
    }
    const PointSelection everything;
    Classification change;
    change.toClass = 9;
    const bool done = measure("hide", session, [&] { session.hide(everything); }) &&
                      measure("undo", session, [&] { session.undo(); }) &&
                      measure("classify", session, [&] { session.classify(everything, change); }) &&
                      measure("save", session, [&] { session.save(); }) &&
                      measure("undo", session, [&] { session.undo(); }) &&
                      measure("save", session, [&] { session.save(); });
    return done ? 0 : 1;
}
