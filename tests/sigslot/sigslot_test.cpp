#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "sigslot/sigslot.h"

namespace {

// Stands in for the log record: the module only passes a const reference to it along.
struct Note {
    int value;
};

typedef sigslot::multi_threaded_local Locking;
typedef sigslot::signal1<const Note&, Locking> NoteSignal;
typedef sigslot::has_slots<sigslot::single_threaded> Receiver;
typedef std::vector<const sigslot::has_slots_interface*> Destinations;
typedef Receiver::sender_set_t Senders;

// Keeps every value it receives and appends its name to a log shared by the receivers of a
// test, so that the order of delivery across receivers shows.
class Recorder : public Receiver {
public:
    explicit Recorder(char name = '?', std::string* order = nullptr) : name(name), order(order) {}
    virtual void onNote(const Note& note) {
        values.push_back(note.value);
        if (order != nullptr) {
            order->push_back(name);
        }
    }

    char name;
    std::string* order;
    std::vector<int> values;
};

// Overrides the slot: a connection bound to Recorder::onNote must still arrive here.
class TenfoldRecorder : public Recorder {
public:
    using Recorder::Recorder;
    void onNote(const Note& note) override { Recorder::onNote(Note{note.value * 10}); }
};

class Thrower : public Receiver {
public:
    void onNote(const Note&) { throw std::runtime_error("slot failed"); }
};

void connect(NoteSignal& signal, Recorder& receiver) {
    signal.connect(&receiver, &Recorder::onNote);
}

Destinations destinations(const NoteSignal& signal) {
    Destinations result;
    for (const auto* connection : signal.connections()) {
        result.push_back(connection->getdest());
    }
    return result;
}

// Runs `work` on another thread and waits for it. If it is still blocked after a generous
// time, a lock was left held; the stuck thread would outlive everything the test owns, so
// the whole run ends here instead of hanging or failing later in teardown.
void runElsewhereOrAbort(const std::function<void()>& work) {
    std::promise<void> done;
    std::future<void> finished = done.get_future();
    std::thread other([&] {
        work();
        done.set_value();
    });
    if (finished.wait_for(std::chrono::seconds(10)) != std::future_status::ready) {
        std::fprintf(stderr, "another thread stayed blocked on the signal's lock\n");
        std::abort();
    }
    other.join();
}

static_assert(std::is_copy_constructible<NoteSignal>::value, "signals are copyable");
static_assert(!std::is_copy_assignable<NoteSignal>::value, "signals are not assignable");
static_assert(std::is_copy_constructible<Receiver>::value, "receivers are copyable");
static_assert(!std::is_copy_assignable<Receiver>::value, "receivers are not assignable");

TEST(SignalTest, DeliversInConnectionOrderAndAReconnectGoesLast) {
    std::string order;
    Recorder a('a', &order);
    Recorder b('b', &order);
    TenfoldRecorder c('c', &order);
    NoteSignal signal;

    connect(signal, a);
    connect(signal, b);
    signal.connect(static_cast<Recorder*>(&c), &Recorder::onNote);
    signal.emit(Note{1});
    EXPECT_EQ("abc", order);
    EXPECT_EQ(std::vector<int>{10}, c.values);  // dispatched to the override

    signal.disconnect(&a);
    connect(signal, a);
    order.clear();
    signal.emit(Note{2});
    EXPECT_EQ("bca", order);
    EXPECT_EQ((std::vector<int>{1, 2}), a.values);
}

TEST(SignalTest, DisconnectRemovesOneConnectionAndForgetsTheSignal) {
    Recorder a;
    Recorder b;
    Recorder stranger;
    NoteSignal first;
    NoteSignal second;
    connect(first, a);
    connect(first, b);
    connect(second, a);
    EXPECT_EQ((Senders{&first, &second}), a.senders());

    first.disconnect(&a);
    EXPECT_EQ(Destinations{&b}, destinations(first));
    EXPECT_EQ(Destinations{&a}, destinations(second));
    EXPECT_EQ(Senders{&second}, a.senders());
    EXPECT_EQ(Senders{&first}, b.senders());

    // Nothing left to remove: neither the list nor the receivers change, and a receiver
    // without a connection is not called (its recorded sender would otherwise vanish).
    stranger.signal_connect(&first);
    first.disconnect(&a);
    first.disconnect(&stranger);
    EXPECT_EQ(Destinations{&b}, destinations(first));
    EXPECT_EQ(Senders{&second}, a.senders());
    EXPECT_EQ(Senders{&first}, stranger.senders());
    stranger.signal_disconnect(&first);

    first.emit(Note{3});
    EXPECT_TRUE(a.values.empty());
    EXPECT_EQ(std::vector<int>{3}, b.values);
}

// Either side going first detaches it from the other: no signal calls a dead receiver, and a
// receiver that outlives a signal does not call it when it goes (AddressSanitizer sees both).
TEST(SignalTest, DestroyingEitherSideDetachesItFromTheOther) {
    NoteSignal first;
    Recorder b;
    {
        Recorder a;
        connect(first, a);
        connect(first, b);
    }
    EXPECT_EQ(Destinations{&b}, destinations(first));
    first.emit(Note{4});
    EXPECT_EQ(std::vector<int>{4}, b.values);

    {
        NoteSignal gone;
        connect(gone, b);
        EXPECT_EQ((Senders{&first, &gone}), b.senders());
    }
    EXPECT_EQ(Senders{&first}, b.senders());
    first.emit(Note{5});
    EXPECT_EQ((std::vector<int>{4, 5}), b.values);
}

TEST(SignalTest, SlotDisconnectDropsEveryConnectionToTheReceiver) {
    Recorder a;
    Recorder b;
    Recorder idle;
    NoteSignal signal;
    NoteSignal other;
    connect(signal, a);
    connect(signal, b);
    connect(signal, a);  // a second connection: the walk must not stop at the first
    connect(other, b);

    signal.slot_disconnect(&idle);
    EXPECT_EQ((Destinations{&a, &b, &a}), destinations(signal));

    signal.slot_disconnect(&a);
    EXPECT_EQ(Destinations{&b}, destinations(signal));
    EXPECT_EQ(Senders{&signal}, a.senders());  // not called back; its disconnect_all clears it
    a.disconnect_all();
    EXPECT_TRUE(a.senders().empty());

    b.disconnect_all();
    EXPECT_TRUE(b.senders().empty());
    EXPECT_TRUE(signal.connections().empty());
    EXPECT_TRUE(other.connections().empty());
}

TEST(CopyTest, CopiedSignalClonesConnectionsInOrder) {
    std::string order;
    Recorder a('a', &order);
    Recorder b('b', &order);
    NoteSignal original;
    connect(original, a);
    connect(original, b);
    {
        NoteSignal copy(original);
        EXPECT_EQ((Destinations{&a, &b}), destinations(copy));
        EXPECT_EQ((Senders{&original, &copy}), a.senders());
        EXPECT_EQ((Senders{&original, &copy}), b.senders());
        copy.emit(Note{6});
        EXPECT_EQ("ab", order);

        copy.disconnect(&a);  // the copy's connections are its own
        EXPECT_EQ(2u, original.connections().size());
    }
    EXPECT_EQ(Senders{&original}, a.senders());
    EXPECT_EQ(Senders{&original}, b.senders());
    original.emit(Note{7});
    EXPECT_EQ("abab", order);
}

TEST(CopyTest, CopiedReceiverJoinsEverySignalOfTheOriginalBehindTheOthers) {
    std::string order;
    Recorder a('a', &order);
    Recorder b('b', &order);
    NoteSignal first;
    NoteSignal second;
    connect(first, a);
    connect(first, b);
    connect(second, a);
    {
        Recorder copy(a);
        copy.name = 'A';
        EXPECT_EQ((Destinations{&a, &b, &copy}), destinations(first));
        EXPECT_EQ((Destinations{&a, &copy}), destinations(second));
        EXPECT_EQ(a.senders(), copy.senders());

        first.emit(Note{8});
        EXPECT_EQ("abA", order);
        EXPECT_EQ(std::vector<int>{8}, copy.values);  // delivered to the copy itself
    }
    EXPECT_EQ((Destinations{&a, &b}), destinations(first));
    EXPECT_EQ(Destinations{&a}, destinations(second));
}

// A caller holding the signal's lock changes connections through the *_while_locked calls;
// meanwhile an emit from another thread waits for the guard.
TEST(LockTest, WhileLockedVariantsWorkUnderTheCallersGuard) {
    NoteSignal signal;
    Recorder a;
    std::thread emitter;
    {
        sigslot::lock_block<Locking> guard(&signal);
        signal.connect_while_locked(&a, &Recorder::onNote);
        EXPECT_EQ(Destinations{&a}, destinations(signal));
        EXPECT_EQ(Senders{&signal}, a.senders());

        emitter = std::thread([&] { signal.emit(Note{9}); });
        // On a slow machine the emitter may not have started yet; then this proves nothing,
        // but it never fails a correct signal.
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        EXPECT_TRUE(a.values.empty());
    }
    emitter.join();
    EXPECT_EQ(std::vector<int>{9}, a.values);

    {
        sigslot::lock_block<Locking> guard(&signal);
        signal.disconnect_while_locked(&a);
    }
    EXPECT_TRUE(signal.connections().empty());
    EXPECT_TRUE(a.senders().empty());
}

TEST(LockTest, EmitReleasesTheLockOnEveryExit) {
    NoteSignal signal;
    signal.emit(Note{0});  // nothing connected
    runElsewhereOrAbort([&] {
        signal.lock();
        signal.unlock();
    });

    Thrower thrower;
    Recorder after;
    Recorder late;
    signal.connect(&thrower, &Thrower::onNote);
    connect(signal, after);
    EXPECT_THROW(signal.emit(Note{10}), std::runtime_error);
    EXPECT_TRUE(after.values.empty());  // the record stops at the throwing slot

    runElsewhereOrAbort([&] { connect(signal, late); });
    EXPECT_EQ((Destinations{&thrower, &after, &late}), destinations(signal));
}

// Switches itself on and off the way the log writers do: the signal's lock first, then its
// own, so that its open flag and its connection always change together.
class Switchable : public Receiver {
public:
    explicit Switchable(NoteSignal* signal) : m_signal(signal) {}

    void open() {
        sigslot::lock_block<Locking> guard(m_signal);
        std::lock_guard<std::mutex> own(m_mutex);
        if (!m_open) {
            m_signal->connect_while_locked(this, &Switchable::onNote);
            m_open = true;
        }
    }

    void close() {
        sigslot::lock_block<Locking> guard(m_signal);
        std::lock_guard<std::mutex> own(m_mutex);
        if (m_open) {
            m_signal->disconnect_while_locked(this);
            m_open = false;
        }
    }

    void onNote(const Note&) {
        std::lock_guard<std::mutex> own(m_mutex);
        ++(m_open ? m_callsWhileOpen : m_callsWhileClosed);
    }

    int callsWhileClosed() {
        std::lock_guard<std::mutex> own(m_mutex);
        return m_callsWhileClosed;
    }

private:
    NoteSignal* m_signal;
    std::mutex m_mutex;
    bool m_open = false;           // guarded by m_mutex
    int m_callsWhileOpen = 0;      // guarded by m_mutex
    int m_callsWhileClosed = 0;    // guarded by m_mutex
};

// Two threads emit while a third switches a receiver on and off. Emit holds the signal's
// lock and then the receiver's; switching takes them in the same order. ThreadSanitizer
// reports an inversion or a race on the list if either side gets this wrong.
TEST(ConcurrencyTest, EmittingWhileSwitchingAReceiverLosesNothing) {
    constexpr int kPerThread = 20000;
    NoteSignal signal;
    Recorder steady;
    Switchable switching(&signal);
    connect(signal, steady);

    std::atomic<bool> stop{false};
    std::atomic<int> switches{0};
    std::thread switcher([&] {
        while (!stop.load()) {
            switching.open();
            switching.close();
            ++switches;
        }
    });
    auto emitAll = [&] {
        for (int i = 0; i < kPerThread; ++i) {
            signal.emit(Note{i});
        }
    };
    std::thread first(emitAll);
    std::thread second(emitAll);
    first.join();
    second.join();
    stop = true;
    switcher.join();

    EXPECT_EQ(static_cast<std::size_t>(2 * kPerThread), steady.values.size());
    EXPECT_EQ(0, switching.callsWhileClosed());
    EXPECT_GT(switches.load(), 0);
    EXPECT_EQ(Destinations{&steady}, destinations(signal));
}

}  // namespace
