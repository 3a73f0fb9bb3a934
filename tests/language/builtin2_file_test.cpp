// The file and path built-ins on a temporary folder: open, write, read back, close twice,
// file numbers that name nothing, files that cannot be opened (with the warning that says
// why), the properties of FileCheck, listings with and without descent, path parts
// (names with dots, without an extension), name translation, and CloseFunctionFiles_L.
#include <sys/stat.h>

#include "builtin2_call.hpp"

namespace {

using qvtest::expect_results;
using qvtest::result_of;

class BuiltinFiles : public qvtest::LanguageTest {
  protected:
    qvtest::TempDirectory folder;
    std::string dir = folder.path.string();

    // The call with every "@" replaced by the folder's path.
    std::string in_folder(std::string call) const {
        for (std::size_t at = call.find('@'); at != std::string::npos; at = call.find('@', at))
            call.replace(at, 1, dir), at += dir.size();
        return call;
    }
    std::string result(const std::string &call) const { return result_of(in_folder(call)); }
    std::string warnings() const { return out + err; }
};

TEST_F(BuiltinFiles, WrittenLinesReadBackAndFilesCloseOnce) {
    EXPECT_EQ(result("FileOpen('@/a.txt', 'write')"), "1");
    EXPECT_EQ(result("FileWrite(1, 'first', 2, NULL, 3.5)"), "TRUE");
    EXPECT_EQ(result("FileWrite(1, '')"), "TRUE");
    EXPECT_EQ(result("FileWrite(1, 'last   ', '2024-01-05')"), "TRUE");
    EXPECT_EQ(result("FileClose(1)"), "TRUE");
    EXPECT_EQ(result("FileClose(1)"), "NULL");
    EXPECT_EQ(qvtest::read_file(folder / "a.txt"),
              "first23.5\n\nlast   2024-01-05 00:00:00.000000000\n");

    EXPECT_EQ(result("FileOpen('@/a.txt')"), "1"); // the free slot is taken again
    EXPECT_EQ(result("FileOpen('@/a.txt', 'Read')"), "2");
    EXPECT_EQ(result("FileRead(1)"), "first23.5");
    qvtest::OwnedValue blank = qvtest::evaluate("FileRead(1)");
    EXPECT_EQ(qvtest::typed(blank.get()), "CHAR "); // a blank line is empty, not NULL
    EXPECT_EQ(result("FileRead(1)"), "last   2024-01-05 00:00:00.000000000");
    EXPECT_EQ(result("FileRead(1)"), "NULL");
    EXPECT_EQ(result("FileRead(2)"), "first23.5");   // each file number reads on its own
    EXPECT_EQ(result("FileWrite(2, 'x')"), "FALSE"); // opened for reading
    EXPECT_EQ(result("FileClose(2)"), "TRUE");

    EXPECT_EQ(result("FileOpen('@/a.txt', 'APPEND')"), "2");
    EXPECT_EQ(result("FileWrite(2, 'more')"), "TRUE");
    EXPECT_EQ(result("FileClose(2)"), "TRUE");
    EXPECT_EQ(result("FileRead(1)"), "more"); // a file read to its end reads what was added
    CloseFunctionFiles_L();
    EXPECT_EQ(result("FileRead(1)"), "NULL");
    EXPECT_EQ(warnings(), "");
}

TEST_F(BuiltinFiles, NumbersThatNameNoOpenFileGiveNull) {
    ASSERT_EQ(result("FileOpen('@/b.txt', 'WRITE')"), "1");
    for (const char *number : {"0", "-1", "2", "2147483647", "2147483648", "NULL"}) {
        const std::string n = number;
        EXPECT_EQ(result("FileRead(" + n + ")"), "NULL") << n;
        EXPECT_EQ(result("FileWrite(" + n + ", 'x')"), "NULL") << n;
        EXPECT_EQ(result("FileClose(" + n + ")"), "NULL") << n;
    }
    EXPECT_EQ(result("FileClose(1)"), "TRUE");
}

TEST_F(BuiltinFiles, FilesThatCannotBeOpenedSayWhy) {
    ::mkdir((dir + "/sub").c_str(), 0700);
    qvtest::write_file(folder / "locked.txt", "x");
    ::chmod((dir + "/locked.txt").c_str(), 0);
    const bool root = ::geteuid() == 0; // root opens every file
    EXPECT_EQ(result("FileOpen('@/missing.txt')"), "NULL");
    EXPECT_EQ(result("FileOpen('@/sub', 'READ')"), "NULL");
    EXPECT_EQ(result("FileOpen('@/sub', 'WRITE')"), "NULL");
    EXPECT_EQ(result("FileOpen('@/nowhere/new.txt', 'WRITE')"), "NULL");
    EXPECT_EQ(result("FileOpen('@/a.txt', 'update')"), "NULL");
    EXPECT_EQ(result("FileOpen(NULL)"), "NULL");
    if (!root) {
        EXPECT_EQ(result("FileOpen('@/locked.txt')"), "NULL");
    }
    const std::string said = warnings();
    EXPECT_THAT(said, ::testing::HasSubstr("The file '" + dir +
                                           "/missing.txt' cannot be opened for READ: No such "
                                           "file or directory."));
    EXPECT_THAT(said, ::testing::HasSubstr("The file '" + dir +
                                           "/sub' cannot be opened for READ: Is a directory."));
    EXPECT_THAT(said, ::testing::HasSubstr("cannot be opened for WRITE: Is a directory."));
    EXPECT_THAT(said, ::testing::HasSubstr(
                          "'update' is not a file mode: READ, WRITE or APPEND was expected."));
    if (!root) {
        EXPECT_THAT(said, ::testing::HasSubstr("Permission denied"));
    }
    EXPECT_EQ(result("FileCheck('@/missing.txt')"), "FALSE");
}

TEST_F(BuiltinFiles, FileCheckTestsEveryPropertyNamed) {
    ::mkdir((dir + "/empty").c_str(), 0700);
    ::mkdir((dir + "/full").c_str(), 0700);
    qvtest::write_file(folder / "full/x.txt", "x");
    qvtest::write_file(folder / "zero.txt", "");
    qvtest::write_file(folder / "run.sh", "#!/bin/sh\n");
    ::chmod((dir + "/run.sh").c_str(), 0700);
    ::symlink((dir + "/zero.txt").c_str(), (dir + "/link").c_str());
    for (auto [call, expected] : std::initializer_list<std::pair<const char *, const char *>>{
             {"FileCheck('@/zero.txt')", "TRUE"},
             {"FileCheck('@/zero.txt', 'exists', 'FILE', 'Empty', 'readable', 'writable')", "TRUE"},
             {"FileCheck('@/zero.txt', 'DIRECTORY')", "FALSE"},
             {"FileCheck('@/zero.txt', 'EXECUTABLE')", "FALSE"},
             {"FileCheck('@/run.sh', 'EXECUTABLE', 'FILE')", "TRUE"},
             {"FileCheck('@/run.sh', 'EMPTY')", "FALSE"},
             {"FileCheck('@/empty', 'DIRECTORY', 'EMPTY')", "TRUE"},
             {"FileCheck('@/full', 'DIRECTORY', 'EMPTY')", "FALSE"},
             {"FileCheck('@/full', 'FILE')", "FALSE"},
             {"FileCheck('@/link', 'LINK', 'FILE')", "TRUE"},
             {"FileCheck('@/zero.txt', 'LINK')", "FALSE"},
             {"FileCheck('@/missing', 'EXISTS')", "FALSE"},
             {"FileCheck('@/missing', 'READABLE')", "FALSE"},
             {"FileCheck('@/zero.txt', NULL)", "TRUE"},
             {"FileCheck('@/zero.txt', 'SHINY')", "NULL"},
             {"FileCheck(NULL, 'EXISTS')", "NULL"},
         })
        EXPECT_EQ(result(call), expected) << call;
    EXPECT_THAT(warnings(), ::testing::HasSubstr("'SHINY' is not a file property: EXISTS, FILE, "
                                                 "DIRECTORY, LINK, READABLE, WRITABLE, "
                                                 "EXECUTABLE or EMPTY was expected."));
}

TEST_F(BuiltinFiles, FileListMatchesNamesWithAndWithoutDescent) {
    for (const char *d : {"/in", "/in/sub", "/in/sub/deeper", "/in/x.csv.d"})
        ::mkdir((dir + d).c_str(), 0700);
    for (const char *f : {"/in/b.csv", "/in/a.csv", "/in/a.txt", "/in/.hidden.csv", "/in/sub/c.csv",
                          "/in/sub/deeper/d.csv", "/in/sub/e.txt"})
        qvtest::write_file(dir + f, "x");
    ::symlink((dir + "/in/sub").c_str(), (dir + "/in/loop").c_str());
    EXPECT_EQ(result("FileList('@/in/*.csv')"), ".hidden.csv;a.csv;b.csv");
    EXPECT_EQ(result("FileList('@/in/?.csv', FALSE, TRUE)"),
              "a.csv;b.csv;sub/c.csv;sub/deeper/d.csv");
    EXPECT_EQ(result("FileList('@/in/[ab].*', TRUE)"),
              in_folder("@/in/a.csv;@/in/a.txt;@/in/b.csv"));
    EXPECT_EQ(result("FileList('@/in/sub', TRUE, TRUE)"),
              in_folder("@/in/sub/c.csv;@/in/sub/deeper/d.csv;@/in/sub/e.txt"));
    EXPECT_EQ(result("FileList('@/in/sub/')"), "c.csv;e.txt");
    EXPECT_EQ(result("FileList('@/in/*.json')"), "NULL");
    EXPECT_EQ(result("FileList('@/nowhere/*')"), "NULL");
    EXPECT_EQ(result("FileList(NULL)"), "NULL");
}

TEST_F(BuiltinFiles, PathPartsAreReadFromTheText) {
    expect_results({
        {"GetFilename('/data/in/orders.csv')", "orders.csv"},
        {"GetFilename('/data/in/orders.csv', TRUE)", "orders"},
        {"GetFilename('/data/in/archive.tar.gz', TRUE)", "archive.tar"},
        {"GetFilename('C:\\data\\README', TRUE)", "README"},
        {"GetFilename('/home/me/.profile', TRUE)", ".profile"},
        {"GetFilename('orders.csv', FALSE)", "orders.csv"},
        {"GetFilename('/data/in/')", "NULL"},
        {"GetFilename(NULL)", "NULL"},
        {"GetDirectory('/data/in/orders.csv')", "/data/in"},
        {"GetDirectory('C:\\data\\in\\orders.csv')", "C:\\data\\in"},
        {"GetDirectory('/orders.csv')", "/"},
        {"GetDirectory('orders.csv')", "NULL"},
        {"FileFromParts('/data/in', 'orders', 'csv')", "/data/in/orders.csv"},
        {"FileFromParts('/data/in/', 'orders', '.csv')", "/data/in/orders.csv"},
        {"FileFromParts('', 'orders', '')", "orders"},
        {"FileFromParts(NULL, 'orders.2024', NULL)", "orders.2024"},
        {"FileFromParts('/data', NULL, 'csv')", "NULL"},
        {"FileFullPath('/data/./in/../out//orders.csv')", "/data/out/orders.csv"},
        {"FileFullPath('/../..')", "/"},
        {"FileFullPath(NULL)", "NULL"},
    });
    char *here = ::getcwd(nullptr, 0);
    EXPECT_EQ(result_of("FileFullPath('x/../y.txt')"), std::string(here) + "/y.txt");
    std::free(here);
}

TEST_F(BuiltinFiles, NamesAreTranslatedBeforeUse) {
    qvtest::ScopedEnvironment data("QV_TEST_DATA", dir.c_str());
    qvtest::ScopedEnvironment home("HOME", dir.c_str());
    qvtest::write_file(folder / "t.txt", "translated\n");
    expect_results({
        {"FileFullPath('${QV_TEST_DATA}/t.txt')", (dir + "/t.txt").c_str()},
        {"FileFullPath('%QV_TEST_DATA%\\t.txt')", (dir + "/t.txt").c_str()},
        {"FileFullPath('~/t.txt')", (dir + "/t.txt").c_str()},
        {"FileFullPath('/x/${QV_NOT_SET_ANYWHERE}/y')", "/x/${QV_NOT_SET_ANYWHERE}/y"},
        {"FileFullPath('/x/100%/y')", "/x/100%/y"},
        {"FileCheck('${QV_TEST_DATA}/t.txt', 'FILE')", "TRUE"},
    });
    EXPECT_EQ(result_of("FileOpen('%QV_TEST_DATA%/t.txt')"), "1");
    EXPECT_EQ(result_of("FileRead(1)"), "translated");
}

} // namespace
