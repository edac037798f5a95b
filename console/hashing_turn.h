// One password hash at a time in each of two lines: each takes 67 MB.
#pragma once

namespace console {

/// Where to wait. Accounts are few, and each waits after its failures, so their line is short;
/// names can be invented without end, and keep only each other waiting.
enum class Line { accounts, strangers };

/// The turn to hash, held until the process gives it up or ends. Others of the line wait for
/// theirs, in any order; whoever waits for more than three seconds is refused.
class HashingTurn {
public:
    /// @throws Refusal 503 "busy"; std::runtime_error where the state folder cannot be written to
    explicit HashingTurn(Line line);
    ~HashingTurn();
    HashingTurn(const HashingTurn&) = delete;
    HashingTurn& operator=(const HashingTurn&) = delete;

private:
    int file_;
};

}  // namespace console
