/*
 * Deliveries that reach a thread while it is inside one of the library's
 * service calls.
 *
 * A service may call an IDolmCallback object of this process from inside a
 * call that this process is making to it (a request's callback before the
 * answer, a new listener's first delivery). Binder runs such a nested call on
 * the thread that waits for the answer, and that thread holds the layer's
 * connection lock shared at that point (and, in a listener registration, the
 * listener registry mutex). Relaying the delivery there would run the
 * caller's callback under library locks: a callback that calls into the
 * library would take the shared lock a second time (undefined for a
 * std::shared_mutex, and a deadlock once a writer waits), take the registry
 * mutex twice, or, when its call fails, wait in the connection reset for the
 * call of its own thread.
 *
 * So every stretch of library code that makes a service call under a library
 * lock opens a HeldDeliveries scope before taking the lock. While a scope is
 * open on a thread, callback clients keep the deliveries that arrive on that
 * thread (with a reference to the client) and answer the service at once;
 * when the thread's outermost scope closes, after its locks are released,
 * they are relayed on that thread in the order they came, before the library
 * function returns to its caller. Deliveries on any other thread are relayed
 * as they come.
 */
#pragma once

namespace halclient {

class HeldDeliveries {
  public:
    HeldDeliveries();
    /** Relays the deliveries kept on this thread when this is its outermost scope. */
    ~HeldDeliveries();
    HeldDeliveries(const HeldDeliveries&) = delete;
    HeldDeliveries& operator=(const HeldDeliveries&) = delete;
};

}  // namespace halclient
