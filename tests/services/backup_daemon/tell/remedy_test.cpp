// What alerts say to do: the page for operators has each word of it, and a remedy for each reason.
#include "platform/standalone/store/remedy.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "services/backup_daemon/copy/smb_failure.h"
#include "tests/support/whole_file.h"

namespace {

using namespace standalone;
using services::FailureKind;
using services::meaning_of;

constexpr char FIRST[] = "1 of 1 files could not be copied; the first: ";

std::string remedy_for_reason(const std::string& reason) {
    return remedy_for(ProblemKind::run_failed, reason);
}

TEST(Remedy, EachStandsWordForWordInThePageForOperators) {
    const std::string page = read_file(OPERATIONS_PAGE);
    for (const std::string& remedy : all_remedies())
        EXPECT_NE(page.find("| " + remedy + " |"), std::string::npos) << remedy;
}

TEST(Remedy, OfAFailedRunIsToldByItsReason) {
    const auto has = [](const std::string& reason, const std::string& words) {
        return remedy_for_reason(reason).find(words) != std::string::npos;
    };
    EXPECT_TRUE(has("//nas/x: the server refuses user \"u\" or the password: why", "smbclient -U"));
    EXPECT_TRUE(has("//nas/x: Connection refused", "30 minutes"));
    EXPECT_TRUE(
        has("the share is full: a: no room; before that, 1 of 3 files could not be "
            "copied; the first: b: Permission denied",
            "make room"));
    EXPECT_TRUE(
        has("1 of 1 files could not be copied; the first: /storage/0 cannot be read: No "
            "such file or directory",
            "mount its disk"));
    EXPECT_TRUE(has("something new", "When a run fails"));
    EXPECT_TRUE(has("", "When a run fails"));
}

/// A reason for each row of the page's table, as runs word them.
constexpr std::array REASONS = {
    "//nas/x: the server refuses user \"u\" or the password: The attempted logon is invalid.",
    "//nas/x: the server does not give this share to user \"u\": Permission denied",
    "//nas/x: there is no such server: Name or service not known",
    "//nas/x: there is no such share: No such file or directory",
    "/storage/0: is another folder than it was, or another disk",
    "a/.recording-backup/recorder.json: Permission denied: nobody can tell whose folder it is",
    "the copying process ended",
    "the task names no server and share",
    "//nas/x: Connection refused",
    "recorder/Camera 1/2026-11-22/02-00-00.mp4: Permission denied",
    "the share is full: a/b.mp4: No space left on device",
    "a/b.mp4: 7 bytes of older copies were removed, and the share has only 1 bytes more free than "
    "before: does it keep what is deleted?",
    "a/b.mp4: the share takes no more of it, though it has 7 bytes free",
    "a/Recorder 01234567: another recorder's folder",
    "a/b.mp4: needs 9 bytes, the share has 7 bytes free and 1 bytes could be removed",
    "the share is full: a: No space left on device; the date 2026-11-22 is doubted: why; set the "
    "clock",
    "a/b.mp4 is not as it was copied, and stays",
    "a/b.mp4 has another size than it was made with",
    "a/b.mp4: the copy is not as it was made, and is not made anew",
    "a/b.mp4: another file, not of this recorder, has this name",
    "a/b.mp4: the copy there was changed by somebody else, and stays as it is",
    "a/b.mp4: the share gives back other bytes than it got",
    "a/b.mp4: /storage/0/2026-11-22/02-00-00.mp4: No such file or directory",
    "a/b.mp4: /storage/0/2026-11-22/02-00-00.mp4: Permission denied",
    "the recorder's own database cannot be written: database is locked",
    "there is no channel 7",
    "/storage/0 cannot be read: Permission denied",
};

/// The right column of the page's table, from the top.
std::vector<std::string> remedies_of_the_page() {
    std::istringstream page(read_file(OPERATIONS_PAGE));
    std::vector<std::string> cells;
    std::string line;
    while (std::getline(page, line) && line != "| the event says | what to do |") continue;
    std::getline(page, line);
    while (std::getline(page, line) && line.starts_with("| ")) {
        const auto middle = line.find(" | ");
        cells.push_back(line.substr(middle + 3, line.size() - middle - 5));
    }
    return cells;
}

TEST(Remedy, EachRowOfThePageIsToldForItsReason) {
    const auto cells = remedies_of_the_page();
    ASSERT_EQ(cells.size(), REASONS.size());
    for (std::size_t row = 0; row < cells.size(); ++row)
        EXPECT_EQ(remedy_for_reason(REASONS[row]), cells[row]) << REASONS[row];
}

TEST(Remedy, WhateverBreaksAConnectionIsToldAsThat) {
    const std::string expected = remedy_for_reason("//nas/x: Connection refused");
    for (int error = 1; error <= EHWPOISON; ++error) {
        if (meaning_of(error) != FailureKind::lost) continue;
        const std::string words = std::strerror(error);
        EXPECT_EQ(remedy_for_reason(FIRST + ("a/b: " + words)), expected) << words;
    }
    EXPECT_EQ(remedy_for_reason("//nas/x: the server's name cannot be looked up: why"), expected);
    EXPECT_EQ(remedy_for_reason("//nas/x: the server does not answer the login"), expected);
}

TEST(Remedy, OfAFileOfTheRecordersOwnIsNotThatOfTheShare) {
    const std::string own = remedy_for_reason("/storage/0/a.mp4: Permission denied");
    EXPECT_NE(own, remedy_for_reason("recorder/a.mp4: Permission denied"));
    EXPECT_NE(own, remedy_for_reason("//nas/x: Permission denied"));
    EXPECT_EQ(own, remedy_for_reason("a.mp4: /storage/0/a.mp4: Input/output error"));
    EXPECT_NE(remedy_for_reason("a.mp4 cannot be read: Input/output error"),
              remedy_for_reason("/storage/0 cannot be read: Input/output error"));
}

TEST(Remedy, EachKindOfProblemHasItsOwn) {
    std::set<std::string> texts;
    for (const ProblemKind kind : {ProblemKind::run_failed, ProblemKind::overdue,
                                   ProblemKind::share_nearly_full, ProblemKind::copies_differ})
        texts.insert(remedy_for(kind, ""));
    EXPECT_EQ(texts.size(), 4U);
}

}  // namespace
