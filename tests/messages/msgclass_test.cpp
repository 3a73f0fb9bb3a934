// Message classes: parameters, texts from the catalogue, severities on both scales, the
// registry of message sets and its failures; and the catalogue itself, checked against
// the named numbers of qv/message.h and the message numbers the library's sources use.
#include <algorithm>
#include <functional>
#include <limits>
#include <map>
#include <regex>
#include <set>

#include "capture.hpp"
#include "messages/catalogue.hpp"

namespace {

using namespace qvtest;

// The kind ('T'ext, 'S'igned, 'U'nsigned) and the text of a parameter.
std::string shown(const PWParam &parameter) {
    return "TSU"[static_cast<int>(parameter.GetKind())] + (" " + parameter.Text());
}

TEST(PWParam, KindsAndTexts) {
    const std::pair<PWParam, const char *> cases[] = {
        {"abc", "T abc"},
        {static_cast<const char *>(nullptr), "T <NULL>"},
        {std::string("str"), "T str"},
        {std::string_view("view"), "T view"},
        {'}', "T }"},
        {static_cast<int16_t>(-7), "S -7"},
        {std::numeric_limits<int64_t>::min(), "S -9223372036854775808"},
        {std::numeric_limits<uint64_t>::max(), "U 18446744073709551615"}};
    for (const auto &[parameter, expected] : cases) EXPECT_EQ(shown(parameter), expected);
}

TEST(PWMessage, FillsNumberedSlots) {
    const std::tuple<const char *, std::vector<PWParam>, const char *> cases[] = {
        {"%2 before %1 twice %1", {"a", 2}, "2 before a twice a"},
        {"%1 %3", {"a"}, "a %3"}, // no third parameter: the slot stays
        {"%%1 is literal", {"a"}, "%1 is literal"},
        {"%10 of ten", {1, 2, 3, 4, 5, 6, 7, 8, 9, "tenth"}, "tenth of ten"},
        {"lone % sign and %", {"a"}, "lone % sign and %"},
        {"%0 is no slot", {"a"}, "%0 is no slot"},
        {"%99999999999999999999 huge", {"a"}, "%99999999999999999999 huge"},
    };
    for (const auto &[text, parameters, expected] : cases)
        EXPECT_EQ(qv::fill_slots(text, parameters), expected) << text;
}

TEST(PWMessage, TextsFromTheCatalogueOrAFallback) {
    PWMessage message(QV_MSG_EXCEPTION_RAISED, MESSAGE_SEVERITY_ERROR);
    message << "GENERAL_ERROR" << std::string("qvvar") << 12;
    EXPECT_EQ(message.Text(), "GENERAL_ERROR was raised in qvvar at line 12.");
    EXPECT_EQ(PWMessage(0x12345678, 4).Text(), "Message 0x12345678 has no text");
    std::unique_ptr<PWMessageBase> copy = (PWMessage(0xABC, 4) << "a" << -7 << 9u).Clone();
    EXPECT_STREQ(copy->ClassName(), "PWMessage");
    EXPECT_EQ(copy->Text(), "Message 0x00000ABC has no text: a, -7, 9");
}

TEST(PWMessage, SeverityScales) {
    const PWSeverity scale[] = {PWSeverity::Debug, PWSeverity::Information, PWSeverity::Warning,
                                PWSeverity::Error, PWSeverity::Fatal};
    for (int32_t library = 1; library <= 5; ++library) {
        PWSeverity catalogue = scale[library - 1];
        EXPECT_EQ(PWMessageBase::ToCatalogueSeverity(library), catalogue);
        EXPECT_EQ(PWMessageBase::ToLibrarySeverity(catalogue), library);
        EXPECT_EQ(PWMessage(1, library).Severity(), catalogue);
        EXPECT_EQ(PWMessage(1, catalogue).LibrarySeverity(), library);
    }
    for (int32_t odd : {0, 6, 9, -1}) EXPECT_EQ(PWMessage(1, odd).LibrarySeverity(), 4) << odd;
    // Without a severity: the catalogue's.
    EXPECT_EQ(PWMessage(QV_MSG_GLOSSARY_LINE_SKIPPED).Severity(), PWSeverity::Warning);
    EXPECT_EQ(PWMessage(QV_MSG_GLOSSARY_OPEN_FAILED).Severity(), PWSeverity::Error);
    EXPECT_EQ(PWMessage(0x12345678).Severity(), PWSeverity::Error);
}

PWMsgSet &sets = PWMsgSet::Instance();

std::vector<uint32_t> numbers(uint32_t handle) {
    std::vector<uint32_t> out;
    for (uint32_t i = 0; i < sets.Count(handle); ++i)
        out.push_back(sets.Message(handle, i)->Number());
    return out;
}

using PWMsgSetTest = CaptureTest;

TEST_F(PWMsgSetTest, AddTransferAndClear) {
    uint32_t a = 0, b = 0, fresh = 0;
    sets.Add(a, PWMessage(1, MESSAGE_SEVERITY_WARNING));
    sets.Add(a, PWMessage(2, MESSAGE_SEVERITY_FATAL));
    sets.Add(b, PWMessage(3, MESSAGE_SEVERITY_DEBUG));
    EXPECT_TRUE(a != 0 && b != 0 && a != b);
    EXPECT_EQ(sets.SetCount(), 2u);
    EXPECT_EQ(sets.WorstSeverity(a), MESSAGE_SEVERITY_FATAL);
    sets.Transfer(a, b); // appends, and leaves the source an empty set
    EXPECT_EQ(numbers(b), (std::vector<uint32_t>{3, 1, 2}));
    EXPECT_TRUE(sets.IsSet(a));
    EXPECT_EQ(sets.Count(a), 0u);
    EXPECT_EQ(sets.WorstSeverity(a), 0);
    sets.Transfer(b, fresh);     // into a handle variable of 0: a new set
    sets.Transfer(fresh, fresh); // into itself: unchanged
    EXPECT_EQ(numbers(fresh), (std::vector<uint32_t>{3, 1, 2}));

    uint32_t stale = a;
    sets.Clear(a);
    sets.Clear(a); // again: ignored
    EXPECT_FALSE(sets.IsSet(a));
    EXPECT_TRUE(sets.IsSet(b));
    sets.Add(stale, PWMessage(4, 4)); // a stale handle gets a new set rather than failing
    EXPECT_EQ(numbers(stale), (std::vector<uint32_t>{4}));
    sets.ClearAll();
    EXPECT_EQ(sets.SetCount(), 0u);
}

TEST_F(PWMsgSetTest, FailuresRaiseMessageSetFailure) {
    uint32_t a = 0, target = 0;
    sets.Add(a, PWMessage(1, 4));
    const std::pair<const char *, std::function<void()>> cases[] = {
        {"count", [&] { sets.Count(a + 1); }},
        {"worst", [&] { sets.WorstSeverity(a + 1); }},
        {"message out of range", [&] { sets.Message(a, 1); }},
        {"transfer", [&] { sets.Transfer(a + 1, target); }},
    };
    for (const auto &[what, call] : cases)
        EXPECT_EQ(raised_by(call), ZRK_MESSAGE_SET_FAILURE) << what;
    EXPECT_EQ(target, 0u);
    // With no status context the raise only reports, and the calls give empty results.
    EXPECT_EQ(sets.Count(a + 1), 0u);
    EXPECT_EQ(sets.WorstSeverity(a + 1), 0);
    EXPECT_EQ(sets.Message(a, 5), nullptr);
    EXPECT_NE(err.find("no context on RAISE/RERAISE"), std::string::npos);
}

fs::path source_root() {
    return fs::path(__FILE__).parent_path().parent_path().parent_path();
}

// Calls `each` with every match of `pattern` in `text`.
void for_matches(const std::string &text, const std::regex &pattern,
                 const std::function<void(const std::smatch &)> &each) {
    for (std::sregex_iterator it(text.begin(), text.end(), pattern), end; it != end; ++it)
        each(*it);
}

// Every QV_MSG_... constant of qv/message.h has a text with the parameters its comment
// lists, every row is named once, and every message number the library's sources use is
// catalogued.
TEST(Catalogue, MatchesTheNamedNumbersAndTheSources) {
    std::map<std::string, std::pair<uint32_t, int>> named; // number, parameter count
    for_matches(read_file(source_root() / "include/qv/message.h"),
                std::regex(R"(#define (QV_MSG_\w+) (0x[0-9A-Fa-f]{8})U\s*/\*\s*(.*?)\s*\*/)"),
                [&](const std::smatch &m) {
                    std::string listed = m[3];
                    int count = listed == "-" ? 0 : 1 + std::ranges::count(listed, ',');
                    named[m[1]] = {std::stoul(m[2], nullptr, 16), count};
                });
    std::set<uint32_t> numbers;
    for (const auto &[name, entry] : named) {
        numbers.insert(entry.first);
        const qv::CatalogueEntry *row = qv::find_catalogue_entry(entry.first);
        ASSERT_NE(row, nullptr) << name;
        int highest = 0;
        for_matches(row->text, std::regex(R"(%(%|\d+))"), [&](const std::smatch &m) {
            if (m[1] != "%") highest = std::max(highest, std::stoi(m[1]));
        });
        EXPECT_EQ(highest, entry.second) << name << ": " << row->text;
    }
    EXPECT_EQ(numbers.size(), named.size()) << "two names for one number";
    EXPECT_EQ(qv::catalogue().size(), named.size()) << "catalogue rows without a name";

    // Named numbers, and literal numbers given straight to a message: PWMessage m(0x...
    std::regex constant(R"(\bQV_MSG_[A-Z0-9_]+\b)");
    std::regex literal(R"((?:PWMessage\s*\w*\s*[({]|NewMessage_L\s*\()\s*(0x[0-9A-Fa-f]{8}))");
    int uses = 0;
    for (const char *folder : {"core", "messages", "strings", "platform", "dates", "containers",
                               "values", "language", "dataline"}) {
        if (!fs::is_directory(source_root() / folder)) continue;
        for (const auto &item : fs::recursive_directory_iterator(source_root() / folder)) {
            if (std::string e = item.path().extension(); e != ".cpp" && e != ".hpp" && e != ".h")
                continue;
            std::string text = read_file(item.path());
            for_matches(text, constant, [&](const std::smatch &m) {
                ++uses;
                EXPECT_TRUE(named.contains(m.str())) << m.str() << " in " << item.path();
            });
            for_matches(text, literal, [&](const std::smatch &m) {
                ++uses;
                EXPECT_NE(qv::find_catalogue_entry(std::stoul(m[1], nullptr, 16)), nullptr)
                    << m[1] << " in " << item.path();
            });
        }
    }
    EXPECT_GT(uses, 5); // the scan does see the library's own messages
}

} // namespace
