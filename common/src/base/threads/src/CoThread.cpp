#include "CoThread.h"

#include <pthread.h>
#include <signal.h>

#include <exception>
#include <string>
#include <utility>

#include "CoMsg.h"
#include "CoThreadMgr.h"

namespace Vantrel {

namespace {

constexpr std::size_t MAX_NAME_BYTES = 15;

// A thread inherits the signal mask of its creator: block everything for the moment of creation.
class SignalsBlocked {
  public:
    SignalsBlocked() {
        sigset_t all;
        ::sigfillset(&all);
        ::pthread_sigmask(SIG_SETMASK, &all, &earlier_);
    }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;
    ~SignalsBlocked() { ::pthread_sigmask(SIG_SETMASK, &earlier_, nullptr); }

  private:
    sigset_t earlier_{};
};

}  // namespace

CoThread::CoThread(const char* name, std::function<void()> body, std::function<void()> requestStop)
    : requestStop_(std::move(requestStop)), finished_(std::make_shared<std::atomic<bool>>(false)) {
    const SignalsBlocked blocked;
    thread_ = std::thread([finished = finished_, shortName = std::string(name).substr(0, MAX_NAME_BYTES),
                           run = std::move(body)] {
        ::pthread_setname_np(::pthread_self(), shortName.c_str());
        try {
            run();
        } catch (const std::exception& error) {
            // Passing on would end the host process.
            CO_MSG_ERROR("Thread '%s' ended early: %s", shortName.c_str(), error.what());
        }
        *finished = true;
    });
    CoThreadMgr::getInstance().add(this);
}

CoThread::~CoThread() {
    CoThreadMgr::getInstance().remove(this);
    requestStop_();
    join();
    if (thread_.joinable()) thread_.detach();
}

void CoThread::join() {
    if (thread_.joinable() && thread_.get_id() != std::this_thread::get_id()) thread_.join();
}

}  // namespace Vantrel
