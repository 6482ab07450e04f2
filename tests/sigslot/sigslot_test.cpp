#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "sigslot/sigslot.h"

struct Note {};  // stands in for the log record, which the module only passes along

// Writes its name into a log shared by the test's receivers on every note ('!' throws
// instead), and '+' or '-' when a signal records itself with it or leaves it.
struct Recorder : sigslot::has_slots<sigslot::single_threaded> {
    Recorder(char name, std::string& log) : name(name), log(log) {}
    void onNote(const Note&) {
        if (name == '!') throw std::runtime_error("slot failed");
        log += name;
    }
    void signal_connect(sigslot::_signal_base_interface* sender) override {
        log += '+';
        has_slots::signal_connect(sender);
    }
    void signal_disconnect(sigslot::_signal_base_interface* sender) override {
        log += '-';
        has_slots::signal_disconnect(sender);
    }
    char name;
    std::string& log;
};

// Delivery in connection order; each side learns of the other's changes exactly once, and
// nobody is told about a connection that did not exist. A throwing slot stops the record
// there and leaves the signal unlocked (a lock left held would hang the connect after it).
TEST(SignalTest, OrderDisconnectionAndDetachOnDestruction) {
    std::string log;
    Recorder a('a', log), b('b', log), stranger('s', log);
    {
        sigslot::signal1<const Note&, sigslot::multi_threaded_local> signal;
        for (Recorder* receiver : {&a, &b, &a}) signal.connect(receiver, &Recorder::onNote);
        signal.emit(Note{});
        signal.disconnect(&a);  // the first of a's two connections
        signal.disconnect(&stranger);
        signal.emit(Note{});
        signal.connect(&a, &Recorder::onNote);
        signal.slot_disconnect(&a);  // every connection of a, a not told
        signal.slot_disconnect(&stranger);
        signal.emit(Note{});
        signal.slot_duplicate(&b, &a);  // a gets b's connection behind it, a not told
        b.name = '!';
        EXPECT_THROW(signal.emit(Note{}), std::runtime_error);
        b.name = 'b';
        signal.emit(Note{});
        EXPECT_EQ("+++aba-ba+bba", log);
        log.clear();
        {
            Recorder late('l', log);
            signal.connect(&late, &Recorder::onNote);
        }
        signal.emit(Note{});  // the dead receiver detached itself
        b.disconnect_all();
        signal.emit(Note{});
        signal.connect(&b, &Recorder::onNote);
        EXPECT_EQ("+baa+", log);
        log.clear();
    }
    EXPECT_EQ("--", log);  // the signal's end detached a and b, so their own ends call nothing
}
