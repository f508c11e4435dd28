#ifndef DALNIM_TESTS_SUPPORT_PRECOMPILED_HPP
#define DALNIM_TESTS_SUPPORT_PRECOMPILED_HPP

// What most tests include anyway; each of them still includes what it uses.

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
