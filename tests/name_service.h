// Takes the place of the system's name service in a test program, so that no test leaves the machine: nothing but
// localhost exists, and names that begin with "slow" are never answered.
#pragma once

#include <atomic>

// How many slow names have been asked for.
extern std::atomic<int> g_nSlowNames;
