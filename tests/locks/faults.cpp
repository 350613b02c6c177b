// What Clang's thread-safety analysis must refuse, one fault for each value of FAULT; 0 has none and
// compiles. locks.sh compiles them. A line "// FAULT n: text" says what the analysis has to find.

#include "CoMutex.h"

using Vantrel::CoCondition;
using Vantrel::CoLock;
using Vantrel::CoMutex;

class Account {
  public:
    void deposit(int amount) CO_EXCLUDES(mutex_) {
// FAULT 1: writing variable 'balance_' requires holding mutex 'mutex_'
#if FAULT != 1
        CoLock lock(mutex_);
#endif
        balance_ += amount;
// FAULT 2: cannot call function 'deposit' while mutex 'mutex_' is held
#if FAULT == 2
        deposit(amount);
#endif
        changed_.notifyAll();
    }

    int waitForMoney() CO_EXCLUDES(mutex_) {
        CoLock lock(mutex_);
        while (balance_ == 0) changed_.wait(mutex_);
// FAULT 3: calling function 'take' requires holding mutex 'mutex_'
#if FAULT == 3
        lock.unlock();
#endif
        return take();
    }

    void waitUnlocked() {
// FAULT 4: calling function 'wait' requires holding mutex 'mutex_'
#if FAULT == 4
        changed_.wait(mutex_);
#endif
    }

    void audit() CO_EXCLUDES(mutex_, log_) {
// FAULT 5: mutex 'mutex_' must be acquired before 'log_'
#if FAULT == 5
        CoLock first(log_);
        CoLock second(mutex_);
#else
        CoLock first(mutex_);
        CoLock second(log_);
#endif
        ++audits_;
    }

    bool tryTake() CO_EXCLUDES(mutex_) {
        if (!mutex_.try_lock()) return false;
        take();
// FAULT 6: mutex 'mutex_' is not held on every path through here
#if FAULT != 6
        mutex_.unlock();
#endif
        return true;
    }

// FAULT 7: reading variable 'balance_' requires holding mutex 'mutex_'
#if FAULT == 7
    int balance() const {
        return balance_;
    }
#endif

  private:
    int take() CO_REQUIRES(mutex_) {
        const int all = balance_;
        balance_ = 0;
        return all;
    }

    CoMutex mutex_ CO_ACQUIRED_BEFORE(log_);
    CoMutex log_;
    CoCondition changed_;
    int balance_ CO_GUARDED_BY(mutex_) = 0;
    int audits_ CO_GUARDED_BY(log_) = 0;
};

int main() {
    Account account;
    account.deposit(1);
    account.waitUnlocked();
    account.audit();
    return account.tryTake() ? 0 : account.waitForMoney();
}
