#pragma once

#include "support/waitable.h"

// A lock that can be waited for together with other objects and the thread's aborter; a wait
// that returns it has taken it. Not recursive; any thread may release it.
namespace Vesk {

class resourceLock : public waitable {
  public:
    resourceLock();

    // Waits without limit; throws user_abort when the calling thread's aborter fires.
    void acquire();
    void release();

    bool onWake() override;

  private:
    bool available = true;
};

} // namespace Vesk
