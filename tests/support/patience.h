// How long tests wait for what must happen.
#pragma once

#include <chrono>

/// Reached only by something that hangs, also where a hundred others have the machine's processors.
inline constexpr std::chrono::minutes PATIENCE(15);

/// The same as poll() wants it.
inline constexpr int PATIENCE_MS = static_cast<int>(std::chrono::milliseconds(PATIENCE).count());
