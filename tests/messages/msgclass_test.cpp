// Message classes: parameters, texts from the catalogue, severities on both scales, the
// registry of message sets and its failures; and the catalogue itself, checked against
// the named numbers of qv/message.h and the message numbers the library's sources use.
#include <algorithm>
#include <functional>
#include <limits>
#include <map>
#include <regex>
#include <set>

#include "messages/capture.hpp"
#include "messages/catalogue.hpp"

namespace {

using namespace qvtest;

constexpr uint32_t uncatalogued = 0x12345678;

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
        {-5, "S -5"},
        {static_cast<int16_t>(-7), "S -7"},
        {std::numeric_limits<int64_t>::min(), "S -9223372036854775808"},
        {4000000000u, "U 4000000000"},
        {std::numeric_limits<uint64_t>::max(), "U 18446744073709551615"}};
    for (const auto &[parameter, expected] : cases) EXPECT_EQ(shown(parameter), expected);
}

TEST(PWMessage, FillsNumberedSlots) {
    const struct {
        const char *text;
        std::vector<PWParam> parameters;
        const char *expected;
    } cases[] = {
        {"%1 and %2", {"a", 2}, "a and 2"},
        {"%2 before %1", {"a", "b"}, "b before a"},
        {"twice %1 %1", {"x"}, "twice x x"},
        {"%1 %3", {"a"}, "a %3"}, // no third parameter: the slot stays
        {"100%% sure", {}, "100% sure"},
        {"%%1 is literal", {"a"}, "%1 is literal"},
        {"%10 of ten", {1, 2, 3, 4, 5, 6, 7, 8, 9, "tenth"}, "tenth of ten"},
        {"lone % sign and %", {"a"}, "lone % sign and %"},
        {"%0 is no slot", {"a"}, "%0 is no slot"},
        {"unused", {"a", "b"}, "unused"},
        {"%99999999999999999999 huge", {"a"}, "%99999999999999999999 huge"},
        {"", {"a"}, ""},
    };
    for (const auto &c : cases)
        EXPECT_EQ(qv::fill_slots(c.text, c.parameters), c.expected) << c.text;
}

TEST(PWMessage, TextsFromTheCatalogueOrAFallback) {
    PWMessage message(QV_MSG_EXCEPTION_RAISED, MESSAGE_SEVERITY_ERROR);
    message << "GENERAL_ERROR"
            << "qvvar" << 12;
    const qv::CatalogueEntry *entry = qv::find_catalogue_entry(QV_MSG_EXCEPTION_RAISED);
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(message.Text(), qv::fill_slots(entry->text, message.Parameters()));
    EXPECT_EQ(message.Text().find('%'), std::string::npos);
    EXPECT_EQ(PWMessage(uncatalogued, 4).Text(), "Message 0x12345678 has no text");
    PWMessage with(0xABC, MESSAGE_SEVERITY_ERROR);
    with << "a" << -7 << 9u;
    EXPECT_EQ(with.Text(), "Message 0x00000ABC has no text: a, -7, 9");
    std::unique_ptr<PWMessageBase> copy = with.Clone();
    EXPECT_STREQ(copy->ClassName(), "PWMessage");
    EXPECT_EQ(copy->Number(), 0xABCu);
    EXPECT_EQ(copy->Severity(), PWSeverity::Error);
    EXPECT_EQ(copy->Text(), with.Text());
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
    EXPECT_EQ(PWMessage(uncatalogued).Severity(), PWSeverity::Error);
}

class PWMsgSetTest : public CaptureTest {
  protected:
    PWMsgSet &sets = PWMsgSet::Instance();

    std::vector<uint32_t> numbers(uint32_t handle) {
        std::vector<uint32_t> out;
        for (uint32_t i = 0; i < sets.Count(handle); ++i)
            out.push_back(sets.Message(handle, i)->Number());
        return out;
    }
};

TEST_F(PWMsgSetTest, AddTransferAndClear) {
    uint32_t a = 0, b = 0, fresh = 0;
    sets.Add(a, PWMessage(1, MESSAGE_SEVERITY_WARNING));
    sets.Add(a, PWMessage(2, MESSAGE_SEVERITY_FATAL));
    sets.Add(b, PWMessage(3, MESSAGE_SEVERITY_DEBUG));
    EXPECT_TRUE(a != 0 && b != 0 && a != b);
    EXPECT_EQ(sets.SetCount(), 2u);
    EXPECT_EQ(sets.WorstSeverity(a), MESSAGE_SEVERITY_FATAL);
    EXPECT_EQ(sets.WorstSeverity(b), MESSAGE_SEVERITY_DEBUG);
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
    sets.Clear(a);      // again: ignored
    sets.Clear(0xFFFF); // unknown: ignored
    EXPECT_FALSE(sets.IsSet(a));
    EXPECT_TRUE(sets.IsSet(b));
    sets.Add(stale, PWMessage(4, 4)); // a stale handle gets a new set rather than failing
    EXPECT_EQ(numbers(stale), (std::vector<uint32_t>{4}));
    sets.ClearAll();
    EXPECT_EQ(sets.SetCount(), 0u);
    EXPECT_FALSE(sets.IsSet(0));
}

TEST_F(PWMsgSetTest, FailuresRaiseMessageSetFailure) {
    uint32_t a = 0, target = 0;
    sets.Add(a, PWMessage(1, 4));
    const struct {
        const char *what;
        std::function<void()> call;
    } cases[] = {
        {"count", [&] { sets.Count(a + 1); }},
        {"worst", [&] { sets.WorstSeverity(a + 1); }},
        {"message of no set", [&] { sets.Message(a + 1, 0); }},
        {"message out of range", [&] { sets.Message(a, 1); }},
        {"transfer", [&] { sets.Transfer(a + 1, target); }},
    };
    for (const auto &c : cases) EXPECT_EQ(raised_by(c.call), ZRK_MESSAGE_SET_FAILURE) << c.what;
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

// QV_MSG_... constants of qv/message.h with their numbers and the count of parameters their
// comment lists.
std::map<std::string, std::pair<uint32_t, int>> named_numbers() {
    std::map<std::string, std::pair<uint32_t, int>> named;
    for_matches(read_file(source_root() / "include/qv/message.h"),
                std::regex(R"(#define (QV_MSG_\w+) (0x[0-9A-Fa-f]{8})U\s*/\*\s*(.*?)\s*\*/)"),
                [&](const std::smatch &m) {
                    std::string listed = m[3];
                    int count = listed == "-" ? 0 : 1 + std::ranges::count(listed, ',');
                    named[m[1]] = {std::stoul(m[2], nullptr, 16), count};
                });
    return named;
}

TEST(Catalogue, EveryNamedNumberHasATextWithItsParameters) {
    auto named = named_numbers();
    std::set<uint32_t> numbers;
    for (const auto &[name, entry] : named) {
        numbers.insert(entry.first);
        const qv::CatalogueEntry *row = qv::find_catalogue_entry(entry.first);
        ASSERT_NE(row, nullptr) << name;
        int highest = 0;
        for_matches(row->text, std::regex(R"(%(%|\d+))"), [&](const std::smatch &m) {
            if (m[1] != "%") highest = std::max(highest, std::stoi(m[1]));
        });
        EXPECT_NE(std::string(row->text), "") << name;
        EXPECT_EQ(highest, entry.second) << name << ": " << row->text;
    }
    EXPECT_EQ(numbers.size(), named.size()) << "two names for one number";
    EXPECT_EQ(qv::catalogue().size(), named.size()) << "catalogue rows without a name";
}

TEST(Catalogue, EveryMessageNumberTheSourcesUseIsCatalogued) {
    auto named = named_numbers();
    // Named numbers, and literal numbers given straight to a message: PWMessage m(0x...
    std::regex constant(R"(\bQV_MSG_[A-Z0-9_]+\b)");
    std::regex literal(R"((?:PWMessage\s*\w*\s*[({]|NewMessage_L\s*\()\s*(0x[0-9A-Fa-f]{8}))");
    int files = 0, uses = 0;
    for (const char *folder : {"core", "messages", "strings", "platform", "dates", "containers",
                               "values", "language", "dataline"}) {
        if (!fs::is_directory(source_root() / folder)) continue;
        for (const auto &item : fs::recursive_directory_iterator(source_root() / folder)) {
            std::string extension = item.path().extension();
            if (extension != ".cpp" && extension != ".hpp" && extension != ".h") continue;
            std::string text = read_file(item.path());
            ++files;
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
    EXPECT_GT(files, 5);
    EXPECT_GT(uses, 5); // the scan does see the library's own messages
}

} // namespace
