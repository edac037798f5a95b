// An alert's mail: what is in its header and body, whatever the alert has in it.
#include "services/backup_daemon/tell/mail_text.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "platform/utilities.h"

namespace {

using namespace services;

constexpr long long MADE = 1'700'000'000;

class MailText : public ::testing::Test {
protected:
    MailText() {
        settings_.to = {"admin@example.org"};
        settings_.from = "nvr@example.com";
        message_ = {.id = "a1", .subject = "Task failed", .text = "It did.\n", .object = "{}"};
    }

    std::string mail() const { return mail_text(settings_, message_, MADE); }

    /// A header's text as it stands, with the lines that go on with it.
    std::string header(const std::string& name) const {
        const std::string text = mail();
        const std::size_t at = text.find("\r\n" + name + ": ") + name.size() + 4;
        std::size_t end = text.find("\r\n", at);
        while (text[end + 2] == ' ') end = text.find("\r\n", end + 2);
        return text.substr(at, end - at);
    }

    std::string subject(const std::string& text) {
        message_.subject = text;
        return header("Subject");
    }

    std::string body() const {
        const std::string text = mail();
        std::string body;
        EXPECT_EQ(b64_decode_v2(text.substr(text.find("\r\n\r\n") + 4), body), 0);
        return body;
    }

    MailSettings settings_;
    AlertMessage message_;
};

TEST_F(MailText, HasTheHeadersThatMailsNeed) {
    EXPECT_EQ(mail(),
              "From: nvr@example.com\r\n"
              "To: admin@example.org\r\n"
              "Subject: Task failed\r\n"
              "Date: Tue, 14 Nov 2023 22:13:20 +0000\r\n"
              "Message-ID: <a1@example.com>\r\n"
              "Auto-Submitted: auto-generated\r\n"
              "MIME-Version: 1.0\r\n"
              "Content-Type: text/plain; charset=UTF-8\r\n"
              "Content-Transfer-Encoding: base64\r\n"
              "\r\n"
              "SXQgZGlkLg0K\r\n");
}

TEST_F(MailText, SubjectThatIsNotAsciiIsEncodedWord) {
    EXPECT_EQ(subject("Tür"), "=?UTF-8?B?VMO8cg==?=");
    EXPECT_EQ(subject("a =? b"), "=?UTF-8?B?YSA9PyBi?=");
    EXPECT_EQ(subject("\xFF"), "=?UTF-8?B?77+9?=");
}

TEST_F(MailText, LongSubjectIsSeveralWordsNoneOfWhichCutsACharacter) {
    std::string text;
    for (int count = 0; count < 100; ++count) text += "ü";
    const std::string folded = subject(text);
    EXPECT_EQ(folded.substr(0, 60), "=?UTF-8?B?w7zDvMO8w7zDvMO8w7zDvMO8w7zDvMO8w7zDvMO8w7zDvMO8?=");
    EXPECT_EQ(std::ranges::count(folded, '\n'), 5);
    std::string words;
    for (std::size_t at = 0; at != std::string::npos; at = folded.find("=?UTF-8", at + 1)) {
        std::string word;
        b64_decode_v2(folded.substr(at + 10, folded.find("?=", at) - at - 10), word);
        words += word;
    }
    EXPECT_EQ(words, text);
}

TEST_F(MailText, NothingInAnAlertBeginsAHeaderOfItsOwn) {
    EXPECT_EQ(subject("x\r\nBcc: c@d\r\n\r\nbody"), "x\\r\\nBcc: c@d\\r\\n\\r\\nbody");
    message_.id = "a\r\nBcc: c@d>";
    EXPECT_EQ(header("Message-ID"), "<a=0D=0ABcc=3A=20c=40d=3E@example.com>");
}

TEST_F(MailText, RecipientsStandALineEach) {
    settings_.to = {"a@b", "root", "c@d"};
    EXPECT_EQ(header("To"), "a@b,\r\n root,\r\n c@d");
}

TEST_F(MailText, SenderWithoutADomainHasOneInItsMessageId) {
    settings_.from = "root";
    EXPECT_EQ(header("Message-ID"), "<a1@localhost>");
}

TEST_F(MailText, BodyIsTheTextWhateverStandsInIt) {
    message_.text = "Grüße\n.\nFrom here\n" + std::string(2000, 'x') + "\n";
    EXPECT_EQ(body(), "Grüße\r\n.\r\nFrom here\r\n" + std::string(2000, 'x') + "\r\n");
    message_.text = "\xFF\n";
    EXPECT_EQ(body(), "\xEF\xBF\xBD\r\n");
    message_.text = "";
    EXPECT_EQ(body(), "");
}

TEST_F(MailText, NoLineIsLongerThanMailServersTake) {
    message_.subject = std::string(5000, 'x');
    message_.text = std::string(5000, 'x') + "\n";
    settings_.to = std::vector<std::string>(100, "somebody@example.org");
    const std::string text = mail();
    std::size_t longest = 0;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = text.find("\r\n", at);
        ASSERT_NE(end, std::string::npos);
        longest = std::max(longest, end - at);
        at = end + 2;
    }
    EXPECT_LE(longest, 78U);
}

}  // namespace
