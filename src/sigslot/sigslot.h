#ifndef QEL_SIGSLOT_SIGSLOT_H_
#define QEL_SIGSLOT_SIGSLOT_H_

// A small typed signal and slot module: it carries every log record from the log manager
// to the writers that are switched on.
//
// A signal owns the list of its connections, in order of connection; a receiver
// (has_slots) keeps the set of signals that hold at least one connection to it. Every
// operation keeps the two sides in step, and destroying either side detaches it from the
// other. Slots run on the thread that emits, under the signal's lock, in the order in
// which they were connected.
//
// Lock order: a signal's lock first, then the receiver's policy lock. A slot must not
// connect to, disconnect from or emit on the signal that is calling it: the signal's lock
// is not recursive and is held for the whole dispatch.

#include <pthread.h>

#include <cstddef>
#include <iterator>
#include <list>
#include <memory>
#include <set>

#include <qel/export.h>

namespace sigslot {

// Lock policy for objects used by one thread at a time: lock() and unlock() do nothing.
class QEL_EXPORT single_threaded {
public:
    virtual ~single_threaded();
    // Does nothing.
    virtual void lock() {}
    // Does nothing.
    virtual void unlock() {}
};

// Lock policy with one ordinary (not recursive, not error-checking) mutex per object.
// Any thread may call lock() and unlock(); the thread that locked must be the one that
// unlocks. Not copyable.
class QEL_EXPORT multi_threaded_local {
public:
    multi_threaded_local() { pthread_mutex_init(&mutex, nullptr); }
    multi_threaded_local(const multi_threaded_local&) = delete;
    multi_threaded_local& operator=(const multi_threaded_local&) = delete;
    virtual ~multi_threaded_local();
    // Blocks until this thread holds the mutex. A thread that already holds it blocks
    // for ever.
    virtual void lock() { pthread_mutex_lock(&mutex); }
    // Releases the mutex held by this thread.
    virtual void unlock() { pthread_mutex_unlock(&mutex); }

private:
    pthread_mutex_t mutex;
};

// Holds a policy's lock for the lifetime of the guard, so that every way out of a scope,
// an exception included, releases it. `policy` must outlive the guard; never null.
// Internal to the library: not exported.
template <class mt_policy>
class lock_block {
public:
    explicit lock_block(mt_policy* policy) : m_policy(policy) { m_policy->lock(); }
    ~lock_block() { m_policy->unlock(); }
    lock_block(const lock_block&) = delete;
    lock_block& operator=(const lock_block&) = delete;

private:
    mt_policy* m_policy;
};

class has_slots_interface;

// What a receiver calls on a signal that holds connections to it. A signal is never
// deleted through this interface.
class QEL_EXPORT _signal_base_interface {
public:
    // Deletes every connection of this signal whose destination is `slot`; `slot` is not
    // called back.
    virtual void slot_disconnect(has_slots_interface* slot) = 0;
    // Appends, at the end of this signal's list, a copy of every connection to `old_slot`
    // that goes to `new_slot` instead. Receivers' sender sets are left as they are.
    // `old_slot` and `new_slot` must differ.
    virtual void slot_duplicate(const has_slots_interface* old_slot,
                                has_slots_interface* new_slot) = 0;

protected:
    ~_signal_base_interface() {}
};

// What a signal calls on a receiver it connects to or detaches from.
class QEL_EXPORT has_slots_interface {
public:
    // Records that `sender` holds a connection to this receiver; recording it twice
    // changes nothing.
    virtual void signal_connect(_signal_base_interface* sender) = 0;
    // Forgets `sender`; forgetting one that is not recorded changes nothing.
    virtual void signal_disconnect(_signal_base_interface* sender) = 0;
    virtual ~has_slots_interface();
    // Asks every recorded signal to drop all its connections to this receiver, then
    // forgets them all.
    virtual void disconnect_all() = 0;
};

// Base of every receiver. It keeps the set of signals connected to it and, when
// destroyed, detaches from all of them, so that no signal can call it afterwards.
//
// A receiver must not be destroyed while another thread connects it to or disconnects it
// from a signal. With the single_threaded policy the set is guarded by the lock of the
// signal that changes it, except in the receiver's own disconnect_all. Receivers are not
// copyable: nothing copies a writer.
template <class mt_policy>
class QEL_EXPORT has_slots : public has_slots_interface, public mt_policy {
public:
    has_slots() {}
    has_slots(const has_slots&) = delete;
    has_slots& operator=(const has_slots&) = delete;

    void signal_connect(_signal_base_interface* sender) override {
        lock_block<mt_policy> guard(this);
        sender_set.insert(sender);
    }

    void signal_disconnect(_signal_base_interface* sender) override {
        lock_block<mt_policy> guard(this);
        sender_set.erase(sender);
    }

    ~has_slots() override { disconnect_all(); }

    // Signals are asked in ascending address order; each takes its own lock for the call.
    void disconnect_all() override {
        lock_block<mt_policy> guard(this);
        for (_signal_base_interface* sender : sender_set) {
            sender->slot_disconnect(this);
        }
        sender_set.clear();
    }

private:
    std::set<_signal_base_interface*> sender_set;
};

// Owns no destination: it only remembers where to deliver an argument.
template <class arg1_type, class mt_policy>
class QEL_EXPORT _connection_base1 {
public:
    virtual ~_connection_base1() {}
    // The receiver this connection delivers to; never null.
    virtual has_slots_interface* getdest() const = 0;
    // Calls the receiver's slot with `a1`; whatever the slot throws passes through.
    virtual void emit(arg1_type a1) = 0;
    // A new connection to the same receiver and slot, owned by the caller.
    virtual _connection_base1* clone() = 0;
    // A new connection to `new_dest` (which must be of this connection's destination
    // class) with the same slot, owned by the caller.
    virtual _connection_base1* duplicate(has_slots_interface* new_dest) = 0;
};

// Delivers to member function `method` of a `dest_type` receiver; a virtual `method` is
// dispatched through the receiver's own class.
template <class dest_type, class arg1_type, class mt_policy>
class QEL_EXPORT _connection1 : public _connection_base1<arg1_type, mt_policy> {
public:
    typedef void (dest_type::*method_type)(arg1_type);
    typedef _connection_base1<arg1_type, mt_policy> base_type;

    // `receiver` is not owned and must be non-null.
    _connection1(dest_type* receiver, method_type slot) : dest(receiver), method(slot) {}
    ~_connection1() override {}

    has_slots_interface* getdest() const override { return dest; }
    void emit(arg1_type a1) override { (dest->*method)(a1); }
    base_type* clone() override { return new _connection1(*this); }
    base_type* duplicate(has_slots_interface* new_dest) override {
        return new _connection1(static_cast<dest_type*>(new_dest), method);
    }

private:
    dest_type* dest;
    method_type method;
};

// A signal's lock and the detaching side of its interface.
template <class mt_policy>
class QEL_EXPORT _signal_base : public _signal_base_interface, public mt_policy {
public:
    _signal_base() {}
    _signal_base(const _signal_base&) = delete;
    _signal_base& operator=(const _signal_base&) = delete;
    virtual ~_signal_base() {}
};

// A signal with one argument: owns its connections and keeps them in order of connection.
// Not copyable.
template <class arg1_type, class mt_policy>
class QEL_EXPORT _signal_base1 : public _signal_base<mt_policy> {
public:
    typedef _connection_base1<arg1_type, mt_policy> connection_type;
    typedef std::list<connection_type*> connections_list;

    _signal_base1() {}

    // Detaches from every receiver still connected and frees all connections.
    ~_signal_base1() override {
        lock_block<mt_policy> guard(this);
        for (connection_type* connection : connection_list) {
            connection->getdest()->signal_disconnect(this);
            delete connection;
        }
        connection_list.clear();
    }

    void slot_disconnect(has_slots_interface* slot) override {
        lock_block<mt_policy> guard(this);
        auto it = connection_list.begin();
        while (it != connection_list.end()) {
            if ((*it)->getdest() == slot) {
                delete *it;
                it = connection_list.erase(it);
            } else {
                ++it;
            }
        }
    }

    void slot_duplicate(const has_slots_interface* old_slot,
                        has_slots_interface* new_slot) override {
        lock_block<mt_policy> guard(this);
        // Only the connections present on entry are looked at, so the copies appended
        // behind them are never copied again.
        auto it = connection_list.begin();
        for (std::size_t remaining = connection_list.size(); remaining > 0; --remaining, ++it) {
            if ((*it)->getdest() == old_slot) {
                append((*it)->duplicate(new_slot));
            }
        }
    }

protected:
    // Takes ownership of `connection` and puts it last, freeing it if the list cannot grow.
    QEL_NO_EXPORT void append(connection_type* connection) {
        std::unique_ptr<connection_type> owned(connection);
        connection_list.push_back(owned.get());
        owned.release();
    }

    connections_list connection_list;  // guarded by the signal's lock; owns its elements
};

// The signal that callers hold. connect, disconnect and emit take the signal's lock
// themselves. A caller that must change a connection together with state guarded by a
// lock of its own takes the signal's lock first, through
// lock_block<mt_policy> guard(&signal), then its own, and calls the *_while_locked
// variants: the same order as emit, which holds the signal's lock while a slot takes the
// receiver's.
template <class arg1_type, class mt_policy>
class QEL_EXPORT signal1 : public _signal_base1<arg1_type, mt_policy> {
public:
    typedef _signal_base1<arg1_type, mt_policy> base_type;

    signal1() {}
    ~signal1() override {}

    // Appends a connection to `method` of `receiver` behind the existing ones and records
    // this signal with the receiver. No check for an existing connection is made: a
    // receiver connects at most once. `receiver` is not owned and must outlive the
    // connection or disconnect itself on destruction (has_slots does).
    template <class desttype>
    void connect(desttype* receiver, void (desttype::*method)(arg1_type)) {
        lock_block<mt_policy> guard(this);
        connect_while_locked(receiver, method);
    }

    // As connect; the caller holds this signal's lock.
    template <class desttype>
    QEL_NO_EXPORT void connect_while_locked(desttype* receiver, void (desttype::*method)(arg1_type)) {
        this->append(new _connection1<desttype, arg1_type, mt_policy>(receiver, method));
        try {
            receiver->signal_connect(this);
        } catch (...) {
            delete this->connection_list.back();
            this->connection_list.pop_back();
            throw;
        }
    }

    // Removes the first connection to `receiver` and forgets this signal in the receiver.
    // Without such a connection nothing changes and the receiver is not called.
    void disconnect(has_slots_interface* receiver) {
        lock_block<mt_policy> guard(this);
        disconnect_while_locked(receiver);
    }

    // As disconnect; the caller holds this signal's lock.
    QEL_NO_EXPORT void disconnect_while_locked(has_slots_interface* receiver) {
        auto& list = this->connection_list;
        for (auto it = list.begin(); it != list.end(); ++it) {
            if ((*it)->getdest() == receiver) {
                delete *it;
                list.erase(it);
                receiver->signal_disconnect(this);
                return;
            }
        }
    }

    // Calls every connection's slot with `a1`, in order of connection, on this thread and
    // under this signal's lock; allocates nothing. An exception from a slot leaves emit
    // with the lock released, and the connections after it miss this call.
    void emit(arg1_type a1) {
        lock_block<mt_policy> guard(this);
        auto& list = this->connection_list;
        auto it = list.begin();
        while (it != list.end()) {
            auto next = std::next(it);
            (*it)->emit(a1);
            it = next;
        }
    }
};

}  // namespace sigslot

#endif  // QEL_SIGSLOT_SIGSLOT_H_
