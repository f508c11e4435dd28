#ifndef TESTS_PROCESS_PATIENCE_HPP
#define TESTS_PROCESS_PATIENCE_HPP

namespace processtest {

/** For alarm(): ends a process that hangs, of which the test then sees SIGALRM. */
constexpr unsigned int PATIENCE_S = 60;

}

#endif
