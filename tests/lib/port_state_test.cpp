// tests/lib/port_state_test.cpp - test: why a port can or cannot be used, and that asking costs nothing.
// Uses simulated modules and failing calls.
// SPDX-License-Identifier: MIT
#include "tests/lib/support.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using State = std::pair<int, std::string>;

State state_of(int com_port) {
    char who[TAVU_WHO_SIZE] = "before";
    const int state = TAVUPortState(com_port, who);
    return {state, who};
}

// A process of another name that holds the port until it is killed.
class Holder {
  public:
    Holder() {
        int ready[2];
        EXPECT_EQ(pipe(ready), 0);
        child_ = fork();
        if (child_ == 0) {
            const int fd = open("/dev/ttyACM0", O_RDWR | O_NOCTTY);
            char done = static_cast<char>(flock(fd, LOCK_EX | LOCK_NB));
            dup2(ready[1], 1);
            execlp("sh", "sh", "-c", "echo; exec sleep 60", nullptr);
            _exit(done);
        }
        close(ready[1]);
        char byte = 0;
        EXPECT_EQ(read(ready[0], &byte, 1), 1);
        close(ready[0]);
    }
    ~Holder() {
        kill(child_, SIGKILL);
        waitpid(child_, nullptr, 0);
    }
    Holder(const Holder&) = delete;
    Holder& operator=(const Holder&) = delete;

  private:
    pid_t child_;
};

TEST(PortState, SaysWhyAPortCannotBeUsedAndSendsNothing) {
    EXPECT_EQ(state_of(-1), State(TAVU_PORT_ABSENT, ""));
    EXPECT_EQ(state_of(kPort), State(TAVU_PORT_ABSENT, ""));
    Module module;
    EXPECT_EQ(state_of(kPort), State(TAVU_PORT_FREE, ""));
    EXPECT_EQ(TAVUPortState(kPort, nullptr), TAVU_PORT_FREE);
    module.set_fault(sim::Fault::denied);
    EXPECT_EQ(state_of(kPort), State(TAVU_PORT_DENIED, "")) << "of a pty no group is known";
    module.set_fault(sim::Fault::none);
    sim::shim_fail({.call = sim::Call::open, .error = EIO});
    EXPECT_EQ(state_of(kPort), State(TAVU_PORT_FAULTY, "Input/output error"));
    {
        const Holder holder;
        // The shell may not yet have become what it starts.
        expect_at_last(State(TAVU_PORT_HELD, "sleep"), [] { return state_of(kPort); });
    }
    expect_at_last(State(TAVU_PORT_FREE, ""), [] { return state_of(kPort); });
    char reason[TAVU_REASON_SIZE];
    TAVUPortReason(kPort, reason);
    EXPECT_STREQ(reason, "it does not answer as a module does");
    EXPECT_EQ(module.sent(), Texts());
    EXPECT_EQ(sim::shim_open_descriptors(), 0);
}

TEST(PortState, TellsOfAnOpenPortWhetherItHungUpAndLeavesItsInput) {
    OpenModule module;
    EXPECT_EQ(state_of(kPort), State(TAVU_PORT_OPEN, ""));
    module.send_to_host(hex("E1 81 00 00 01 50 00 00 00 00 00 00 00 00 B3 0D 0A"));
    EXPECT_EQ(state_of(kPort), State(TAVU_PORT_OPEN, ""));
    CAN_FRAME_INFO record{};
    expect_at_last(TAVU_REPORT, [&] { return TAVUReceive_CANFD(kPort, &record); });
    module.unplug();
    EXPECT_EQ(state_of(kPort), State(TAVU_PORT_GONE, ""));
}

}  // namespace
