#pragma once
// Makes writes fail as on a full disk: files of this process may not grow past a size while the object
// lives (RLIMIT_FSIZE, with SIGXFSZ ignored so that the write returns an error instead of killing us).

#include <signal.h>
#include <sys/resource.h>

namespace BcastTest {

class CFileSizeLimit {
public:
    explicit CFileSizeLimit(rlim_t bytes) {
        struct sigaction ignore {};
        ignore.sa_handler = SIG_IGN;
        sigaction(SIGXFSZ, &ignore, &previousAction_);
        getrlimit(RLIMIT_FSIZE, &previousLimit_);
        rlimit limit = previousLimit_;
        limit.rlim_cur = bytes;
        active_ = setrlimit(RLIMIT_FSIZE, &limit) == 0;
    }
    ~CFileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &previousLimit_);
        sigaction(SIGXFSZ, &previousAction_, nullptr);
    }
    CFileSizeLimit(const CFileSizeLimit&) = delete;
    CFileSizeLimit& operator=(const CFileSizeLimit&) = delete;

    bool IsActive() const { return active_; }

private:
    struct sigaction previousAction_ {};
    rlimit previousLimit_{};
    bool active_ = false;
};

}  // namespace BcastTest
