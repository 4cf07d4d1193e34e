// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>

// The one kernel wakelock of the process, "MARLODAEMON_WAKEUP", counted by reference: it is taken
// when the count leaves 0 and dropped when the count returns to 0. Every channel transfer holds a
// reference for as long as it lasts, so that the application processor does not suspend meanwhile.
//
// Failures are logged, never returned: a transfer goes on without its wakelock. Safe on any thread.
class client_wakelock {
  public:
    // The process's instance, made on first use and never destroyed.
    static client_wakelock* get_instance();

    // Opens the kernel's two files for the life of the object. Public for tests; everybody else
    // uses the instance.
    client_wakelock();
    client_wakelock(const client_wakelock&) = delete;
    client_wakelock& operator=(const client_wakelock&) = delete;

    // Takes `count` references. Refused, with an error logged, where the count would wrap.
    void get_n_locks(int count);

    // Gives `count` references back. Refused, with an error logged, where fewer are held.
    void put_n_locks(unsigned int count);

  private:
    void acquire();
    void release();

    uint32_t _accu_count = 0;
    std::mutex _mutex;  // guards the count, the held flag and the writes to the kernel
    std::condition_variable _acquired;
    int _lock_fd = -1;
    int _unlock_fd = -1;
    bool _held = false;
};
