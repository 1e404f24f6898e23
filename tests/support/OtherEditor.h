#pragma once

#include <VelBrx/File.h>

#include <string>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

/// Another process that has a file open for editing until this object ends.
class OtherEditor
{
public:
    explicit OtherEditor(const std::string& path)
    {
        int ready[2];
        if (pipe(ready) != 0) return;
        _process = fork();
        if (_process == 0) {
            VelBrx::File file(path.c_str());
            const char outcome = file.lockForEditing() ? 'y' : 'n';
            if (write(ready[1], &outcome, 1) != 1) _exit(1);
            pause();
            _exit(0);
        }
        char outcome = 'n';
        _edits = read(ready[0], &outcome, 1) == 1 && outcome == 'y';
        close(ready[0]);
        close(ready[1]);
    }

    OtherEditor(const OtherEditor&) = delete;
    OtherEditor& operator=(const OtherEditor&) = delete;
    ~OtherEditor() { kill(); }

    /// Whether it could take the lock.
    bool edits() const { return _edits; }
    pid_t process() const { return _process; }

    void kill()
    {
        if (_process <= 0) return;
        ::kill(_process, SIGKILL);
        waitpid(_process, nullptr, 0);
        _process = -1;
    }

private:
    pid_t _process = -1;
    bool _edits = false;
};
