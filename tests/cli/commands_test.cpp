#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "cli/clirun.h"
#include "support/tempdir.h"

namespace brindlex::clitest {
namespace {

using namespace std::string_literals;

// decode, dump and page write raw bytes, a sheet or a page to stdout (dump -o
// replaces a sheet whole, keeping its mode, page --save splices an edited
// page into the file; page without --block goes to the file's end, in
// stretches that join up as one page), or refuse with status 2 and a reason
// on stderr.
TEST(Commands, WriteTheirOutputOrRefuseWithStatusTwo)
{
    const std::string kFile = "Hi\r\n\0\xFFZ"s, kMeta = "ab\x03\0\0\0\x21\x15\x09\0"s,
                      kSheet = "an older sheet, longer than the one dump -o writes", kLong(300000, 'L');
    const struct {
        std::vector<std::string> args;
        int status;
        std::string out;          // for status 2: part of what stderr must say
        std::string edit = "";    // the page text given to page --save
        std::string after = "";   // what f holds afterwards, when not kFile
        std::string sheet = "";   // what sheet.xls holds afterwards, when not kSheet
    } rows[] = {
        {{"decode", "<0D> <0A>"}, 0, "\r\n"},
        // The bytes are those typed, not upper-cased, a NUL among them.
        {{"decode", "ab%00%ff%0a"}, 0, "ab\0\xff\n"s},
        {{"decode", "<41>%42", "--no-angle"}, 0, "<41>B"},
        {{"decode", "--", "--no-angle"}, 0, "--no-angle"},
        {{"decode"}, 2, "expects one TEXT"},
        {{"decode", "-n", "a"}, 2, "unknown option '-n'"},
        {{"dump", "--size", "2", "--cols", "1", "in.bin"}, 0, " 1 \t258\r\n 2 \t-1\r\n 3 \t255\r\n"},
        {{"dump", "--cols", "2", "--size", "4", "--", "in.bin"}, 0, " 1 \t-65278\t255\r\n"},
        {{"dump", "--size", "2", "--cols", "1", "-o", "sheet.xls", "in.bin"}, 0, "", "", "", " 1 \t258\r\n 2 \t-1\r\n 3 \t255\r\n"},
        {{"dump", "--size", "2", "--cols", "1", "--output", "sheet.xls", "gone"}, 2, "cannot read gone"},
        {{"dump", "--size", "2", "--cols", "1", "-o", "planted.xls", "in.bin"}, 2, "not followed"},   // a link to sheet.xls
        {{"dump", "--size", "2", "--cols", "1", "missing"}, 2, "brindlex-cli: dump: cannot read missing: No such file or directory\n"},
        {{"dump", "--size", "2", "--cols", "1", "-o", "no/s.xls", "in.bin"}, 2,
         "brindlex-cli: dump: cannot write sheet no/s.xls: No such file or directory\n"},
        {{"dump", "--size", "3", "--cols", "1", "in.bin"}, 2, "bad value '3' for --size (2 or 4)"},
        {{"dump", "--size", "2", "--cols", "0", "in.bin"}, 2, "bad value '0' for --cols (1 to 32767)"},
        {{"dump", "--size=2", "--cols=32768", "in.bin"}, 2, "bad value '32768' for --cols"},
        {{"dump", "--size", "2", "--cols", "1x", "in.bin"}, 2, "bad value '1x' for --cols"},
        {{"dump", "--size=4", "--cols=2", "in.bin", "f"}, 2, "expects one FILE, not 2"},
        {{"dump", "--cols=2", "in.bin"}, 2, "--size 2|4 must be given"},
        {{"dump", "--size", "2", "--cols"}, 2, "--cols needs a value"},
        {{"page", "f"}, 0, "000001:   H    i  <0D> <0A> <00> <FF>   Z  "},
        {{"page", "--mode", "0", "--width", "4", "--format", "1", "f"}, 0,
         "000001: <48> <69> <0D> <0A> \r\n000005: <00> <FF> <5A> "},
        {{"page", "--mode", "2", "--pos", "2", "--block", "2", "f"}, 0, "i\r\n"},
        {{"page", "--mode", "2", "--pos", "3", "long"}, 0, kLong.substr(2)},
        {{"page", "--mode", "0", "--width", "2", "--pos", "3", "--block", "2", "f"}, 0, "", "000003: <41> <42> <43>",
         "HiABC\0\xFFZ"s},
        // Bytes the records pass over are on no page: such a page is not saved.
        {{"page", "--format", "3", "m"}, 2, "brindlex-cli: page: cannot save m: Cannot save a page shown as metafile records",
         "000001 = 03 : <03> <00> <00> <00> <21> <16>"},
        {{"page", "none"}, 2, "brindlex-cli: page: cannot read none: No such file or directory\n"},
        // What --save reads is a regular file no longer than the page allows.
        {{"page", "--save", "/dev/zero", "f"}, 2, "brindlex-cli: page: cannot read edited page /dev/zero: Not a regular file\n"},
        {{"page", "--mode", "0", "--block", "2", "f"}, 2, "longer than the page it edits", std::string((1 << 20) + 40, 'x')},
        {{"page", "--pos", "0", "f"}, 2, "bad value '0' for --pos"},
        {{"page", "--pos=8", "f"}, 1, "position 8 is past the end of f (7 bytes)"},
        {{"page", "--width=4=", "f"}, 2, "bad value '4=' for --width"},
        {{"page", "f", "g"}, 2, "expects one FILE"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.args));
        test::TempDir dir;
        dir.write("in.bin", "\x02\x01\xff\xff\xff"s);
        dir.write("f", kFile);
        dir.write("m", kMeta);
        dir.write("long", kLong);
        std::filesystem::permissions(dir.write("sheet.xls", kSheet), static_cast<std::filesystem::perms>(0640));
        std::filesystem::create_symlink("sheet.xls", dir.path() / "planted.xls");
        std::vector<std::string> args = row.args;
        if (!row.edit.empty())
            args.insert(args.begin() + 1, {"--save", dir.write("edit", row.edit).string()});
        const CliResult r = runcli(args, dir.path(), dir.path());
        EXPECT_TRUE(r.exited(row.status)) << r.failure << " status " << r.exitstatus << " stderr " << r.err;
        EXPECT_EQ(r.out, row.status == 0 ? row.out : "");
        if (row.status == 0)
            EXPECT_EQ(r.err, "");
        else
            EXPECT_NE(r.err.find(row.out), std::string::npos) << r.err;
        EXPECT_EQ(test::readfile(dir.path() / "f"), row.after.empty() ? kFile : row.after);
        EXPECT_EQ(test::readfile(dir.path() / "m"), kMeta);
        EXPECT_EQ(test::readfile(dir.path() / "sheet.xls"), row.sheet.empty() ? kSheet : row.sheet);
        EXPECT_EQ(static_cast<int>(std::filesystem::status(dir.path() / "sheet.xls").permissions()), 0640);
        EXPECT_TRUE(std::filesystem::is_symlink(dir.path() / "planted.xls"));
    }
}

}  // namespace
}  // namespace brindlex::clitest
