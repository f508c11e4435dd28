#ifndef TESTS_PROCESS_PATIENCE_HPP
#define TESTS_PROCESS_PATIENCE_HPP

namespace processtest {

/** For alarm(): terminates a process that hangs by SIGALRM, which the test detects. */
constexpr unsigned int PATIENCE_S = 60;

}

#endif
