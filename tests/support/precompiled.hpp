#ifndef DALNIM_TESTS_SUPPORT_PRECOMPILED_HPP
#define DALNIM_TESTS_SUPPORT_PRECOMPILED_HPP

// Headers that most tests include. Tests must still include what they use.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#endif
