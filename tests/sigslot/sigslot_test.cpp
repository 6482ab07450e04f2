#include <initializer_list>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "sigslot/sigslot.h"

namespace {

struct Note {};  // stands in for the log record, which the module only passes along

typedef sigslot::multi_threaded_local Locking;
typedef sigslot::signal1<const Note&, Locking> NoteSignal;
typedef sigslot::has_slots<sigslot::single_threaded> Receiver;
typedef std::vector<const sigslot::has_slots_interface*> Destinations;
typedef Receiver::sender_set_t Senders;

// Appends its name to a log, shared by the test's receivers when the order of delivery
// across them matters. One named '!' throws instead.
class Recorder : public Receiver {
public:
    explicit Recorder(char name = '?', std::string* log = nullptr)
        : name(name), log(log != nullptr ? log : &own) {}
    void onNote(const Note&) {
        if (name == '!') {
            throw std::runtime_error("slot failed");
        }
        log->push_back(name);
    }
    char name;
    std::string own;
    std::string* log;
};

void connect(NoteSignal& signal, std::initializer_list<Recorder*> receivers) {
    for (Recorder* receiver : receivers) {
        signal.connect(receiver, &Recorder::onNote);
    }
}

Destinations destinations(const NoteSignal& signal) {
    Destinations result;
    for (const auto* connection : signal.connections()) {
        result.push_back(connection->getdest());
    }
    return result;
}

static_assert(std::is_copy_constructible<NoteSignal>::value, "signals are copyable");
static_assert(!std::is_copy_assignable<NoteSignal>::value, "signals are not assignable");
static_assert(std::is_copy_constructible<Receiver>::value, "receivers are copyable");
static_assert(!std::is_copy_assignable<Receiver>::value, "receivers are not assignable");

TEST(SignalTest, DeliversInConnectionOrderAndAReconnectGoesLast) {
    std::string order;
    Recorder a('a', &order), b('b', &order), c('c', &order);
    NoteSignal signal;
    connect(signal, {&a, &b, &c});
    signal.emit(Note{});
    signal.disconnect(&a);
    connect(signal, {&a});
    signal.emit(Note{});

    // A throwing slot stops the record there and leaves the signal unlocked: the mutex is not
    // recursive, so a lock left held would block the connect below for ever.
    b.name = '!';
    EXPECT_THROW(signal.emit(Note{}), std::runtime_error);
    EXPECT_EQ("abcbca", order);
    Recorder late;
    connect(signal, {&late});
    EXPECT_EQ((Destinations{&b, &c, &a, &late}), destinations(signal));
}

// disconnect removes one connection and tells the receiver; slot_disconnect removes all of
// them and tells nobody. A receiver without a connection is told nothing.
TEST(SignalTest, DisconnectRemovesOneAndSlotDisconnectAll) {
    Recorder a, b, stranger;
    NoteSignal first, second;
    connect(first, {&a, &b});
    connect(second, {&a});
    first.disconnect(&a);
    EXPECT_EQ(Destinations{&b}, destinations(first));
    EXPECT_EQ(Senders{&second}, a.senders());

    stranger.signal_connect(&first);
    first.disconnect(&stranger);
    first.slot_disconnect(&stranger);
    EXPECT_EQ(Senders{&first}, stranger.senders());
    stranger.signal_disconnect(&first);

    connect(first, {&a, &a});  // the walk must not stop at the first match
    first.slot_disconnect(&a);
    EXPECT_EQ(Destinations{&b}, destinations(first));
    EXPECT_EQ((Senders{&first, &second}), a.senders());
    a.disconnect_all();
    EXPECT_TRUE(a.senders().empty());
    EXPECT_TRUE(second.connections().empty());
}

// A copied signal clones the connections in order; a copied receiver joins the original's
// signals behind the others. Destroying either copy while connected detaches it from the
// other side, so nothing calls a dead object afterwards (AddressSanitizer would see it).
TEST(CopyTest, CopiesGetTheirOwnConnectionsAndDetachWhenDestroyed) {
    std::string order;
    Recorder a('a', &order), b('b', &order);
    NoteSignal first, second;
    connect(first, {&a, &b});
    connect(second, {&a});
    {
        NoteSignal copy(first);
        Recorder copied(a);
        copied.name = 'A';
        EXPECT_EQ((Destinations{&a, &b, &copied}), destinations(copy));
        EXPECT_EQ((Destinations{&a, &b, &copied}), destinations(first));
        EXPECT_EQ((Destinations{&a, &copied}), destinations(second));
        EXPECT_EQ((Senders{&first, &second, &copy}), copied.senders());
        EXPECT_EQ(a.senders(), copied.senders());
        copy.emit(Note{});
        first.emit(Note{});
        EXPECT_EQ("abAabA", order);
        copy.disconnect(&a);
        EXPECT_EQ(3u, first.connections().size());
    }
    EXPECT_EQ((Senders{&first, &second}), a.senders());
    EXPECT_EQ(Senders{&first}, b.senders());
    EXPECT_EQ((Destinations{&a, &b}), destinations(first));
    EXPECT_EQ(Destinations{&a}, destinations(second));
    first.emit(Note{});
    EXPECT_EQ("abAabAab", order);
}

// Two threads emit while a third switches a receiver on and off as the log writers do, under
// the signal's lock. Its name, the open flag, is plain data guarded by that lock alone: TSan
// reports a race if emit calls a slot without the lock, or if the list changes mid-walk.
TEST(ConcurrencyTest, EmittingWhileSwitchingAReceiverLosesNothing) {
    constexpr int kPerThread = 20000;
    NoteSignal signal;
    Recorder steady, switching('x');
    connect(signal, {&steady});
    auto emitAll = [&] {
        for (int i = 0; i < kPerThread; ++i) {
            signal.emit(Note{});
        }
    };
    std::thread first(emitAll), second(emitAll), switcher([&] {
        for (int i = 0; i < 2 * kPerThread; ++i) {
            sigslot::lock_block<Locking> guard(&signal);
            if (switching.name == 'x') {
                signal.connect_while_locked(&switching, &Recorder::onNote);
                switching.name = 'o';
            } else {
                signal.disconnect_while_locked(&switching);
                switching.name = 'x';
            }
        }
    });
    first.join();
    second.join();
    switcher.join();
    EXPECT_EQ(std::string(2 * kPerThread, '?'), steady.own);
    EXPECT_EQ(std::string::npos, switching.own.find('x'));  // never called while switched off
    EXPECT_EQ(Destinations{&steady}, destinations(signal));
    EXPECT_TRUE(switching.senders().empty());
}

}  // namespace
