// SPDX-License-Identifier: Apache-2.0
// Writes the inputs that the fuzz targets begin with, one folder a target.

#include <sqlite3.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

namespace {

using std::filesystem::path;

void writeText(path const& folder, std::string_view name, std::string_view text) {
  std::filesystem::create_directories(folder);
  std::ofstream(folder / name, std::ios::binary) << text;
}

void writeDatabase(path const& folder, std::string const& name, char const* sql) {
  std::filesystem::create_directories(folder);
  std::filesystem::remove(folder / name);
  sqlite3* db = nullptr;
  char* message = nullptr;
  sqlite3_open((folder / name).c_str(), &db);
  if (sqlite3_exec(db, sql, nullptr, nullptr, &message) != SQLITE_OK) {
    std::fprintf(stderr, "%s: %s\n", name.c_str(), message);
    std::exit(1);
  }
  sqlite3_close(db);
}

void writeDatabases(path const& folder) {
  writeDatabase(folder, "plain",
                "PRAGMA page_size = 512; CREATE TABLE a(id INTEGER PRIMARY KEY, b TEXT NOT NULL DEFAULT 'x');"
                "CREATE INDEX i ON a(b); INSERT INTO a(b) VALUES ('one'), ('two'); CREATE VIEW v AS SELECT b FROM a;"
                "CREATE TRIGGER t AFTER INSERT ON a BEGIN SELECT 1; END");
  writeDatabase(
      folder, "flags",
      "PRAGMA page_size = 512; CREATE TABLE w(a, b, PRIMARY KEY (b, a)) WITHOUT ROWID;"
      "CREATE TABLE s(id INTEGER PRIMARY KEY DESC, c INT AS (id * 2)) STRICT; CREATE TABLE r(rowid, _rowid_, oid)");
  writeDatabase(folder, "wide",
                "PRAGMA encoding = 'UTF-16'; PRAGMA page_size = 512; CREATE TABLE \"gr\u00fc\u00dfe\"(a)");
  writeDatabase(folder, "search", "PRAGMA page_size = 1024; CREATE VIRTUAL TABLE f USING fts5(a)");
}

std::string bytesOf(path const& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

/// Two databases behind the length of the first.
void writePair(path const& folder, std::string const& name, std::string const& before, std::string const& after) {
  writeDatabase(folder, "before", before.c_str());
  writeDatabase(folder, "after", after.c_str());
  std::string const first = bytesOf(folder / "before");
  std::string const length{static_cast<char>(first.size() % 256), static_cast<char>(first.size() / 256)};
  writeText(folder, name, length + first + bytesOf(folder / "after"));
  std::filesystem::remove(folder / "before");
  std::filesystem::remove(folder / "after");
}

void writePairs(path const& folder) {
  std::string const plain =
      "PRAGMA page_size = 512; CREATE TABLE a(id INTEGER PRIMARY KEY, b); CREATE TABLE c(k TEXT PRIMARY KEY NOT NULL, "
      "d); CREATE VIEW v AS SELECT b FROM a; INSERT INTO a(b) VALUES ('one'), (2), (x'03'); INSERT INTO c VALUES ";
  writePair(folder, "plain", plain + "('x', 1), ('y', NULL)",
            plain + "('X', 1), ('y', 2.5); DELETE FROM a WHERE id = 1");
  std::string const wide =
      "PRAGMA encoding = 'UTF-16'; PRAGMA page_size = 512; CREATE TABLE w(a, b COLLATE NOCASE, PRIMARY KEY (b, a)) "
      "WITHOUT ROWID; CREATE TABLE s(k ANY PRIMARY KEY, g TEXT AS (hex(k))) STRICT; INSERT INTO s VALUES (1); ";
  writePair(folder, "wide", wide + "INSERT INTO w VALUES (1, 'gr\u00fc\u00dfe')",
            wide + "INSERT INTO w VALUES (1, 'GR\u00fc')");
}

/// A delimiter, an encoding, three limits and the size of a read stand before each text.
void writeDelimited(path const& folder) {
  using namespace std::literals;
  writeText(folder, "plain",
            ",\0\xff\xff\xff\x40"sv
            "a,b,c\n1,,3\r\n\r4"sv);
  writeText(folder, "quoted", ",\1\xff\xff\xff\3\"a\"\"b\",\"c\r\nd\"e\n\"\",\xe9"sv);
  writeText(folder, "limits",
            "\t\0\3\4\x0c\1"sv
            "ab\t\"cd\"\"\"\r\n\u00e9\u00e9\tb"sv);
  writeText(folder, "marks",
            ";\0\xff\xff\xff\7"sv
            "a,\u0301b;\"\u0301\";\u0301\n"sv);
}

/// Documents and values in the forms that a cell's preview reads.
void writePreviews(path const& root) {
  path const readings = root / "interpretation";
  writeText(readings, "uuid", "0123ABCD-ef01-2345-6789-abcdefabcdef");
  writeText(readings, "date", "2024-02-29");
  writeText(readings, "timestamp", "2024-02-29T23:59:59.123456789+14:59");
  writeText(readings, "number", "-62135596800");
  path const trees = root / "preview-tree";
  writeText(trees, "object", R"({"b":[1,2.5,{"c":null}],"a":{"\u00e9":"text"},"d":[[[[[[[]]]]]]]})");
  writeText(trees, "supplied", R"([{"id":"1","label":"a","value":"b","children":[{"id":"2","label":"","value":""}]}])");
  path const lists = root / "property-list";
  std::string const trailer(6, '\0');
  auto const numbers = [](char objects, char table) {
    return std::string(7, '\0') + objects + std::string(8, '\0') + std::string(7, '\0') + table;
  };
  writeText(lists, "dictionary",
            std::string("bplist00\xD2\1\2\3\4\x51k\x51l\x22\x3F\xC0\0\0\xA2\3\3\x08\x0D\x0F\x11\x16", 30) + trailer +
                "\1\1" + numbers(5, 25));
  writeText(lists, "long",
            std::string("bplist00\xAF\x10\1\1\x5F\x11\0\2ab\x08\x0C", 20) + trailer + "\1\1" + numbers(2, 18));
  // Markup, UTF-16 with a pair, data and a date of the year 33.
  writeText(lists, "texts",
            std::string("bplist00\xA4\1\2\3\4\x53<&>\x63\xD8\x3D\xDE\0\0b\x42\xFF\0"
                        "\x33\xC2\x2C\xEA\x6D\x4D\x20\0\0\x08\x0D\x11\x18\x1B",
                        41) +
                trailer + "\1\1" + numbers(5, 36));
  path const documents = root / "xml";
  writeText(documents, "outline",
            "<?xml version='1.0'?><!-- c --><a b='1' c=\"&lt;\">x<b/><![CDATA[<y>]]>&#65;<?p?></a>");
  writeText(documents, "list",
            "<plist><dict><key>k</key><array><real>1.5</real><data>AAEC</data></array></dict></plist>");
  writeText(documents, "declared", "<!DOCTYPE a [<!ENTITY e 'x'>]><a>&e;</a>");
}

void writeHelperInput(path const& root) {
  writeText(root / "picture", "gif",
            std::string_view("GIF89a\1\0\1\0\x80\0\0\xff\0\0\xff\xff\xff,\0\0\0\0\1\0\1\0\0\2\2\x44\1\0;", 35));
  writeText(
      root / "picture", "tiff",
      std::string_view("II*\0\10\0\0\0\6\0\0\1\3\0\1\0\0\0\2\0\0\0\1\1\3\0\1\0\0\0\1\0\0\0\2\1\3\0\1\0\0\0\10\0\0\0"
                       "\6\1\3\0\1\0\0\0\1\0\0\0\21\1\4\0\1\0\0\0\10\0\0\0\27\1\4\0\1\0\0\0\2\0\0\0\0\0\0\0",
                       86));
  writeText(
      root / "document", "page",
      "%PDF-1.7\n1 0 obj<</Type/Catalog/Pages 2 0 R>>endobj\n2 0 obj<</Type/Pages/Kids[3 0 R]/Count 1>>endobj\n"
      "3 0 obj<</Type/Page/Parent 2 0 R/MediaBox[0 0 90 60]/CropBox[9 9 80 50]/Rotate 90/Contents 4 0 R"
      "/Resources<</Font<</F<</Type/Font/Subtype/Type1/BaseFont/Helvetica>>>>>>>>endobj\n4 0 obj<</Length 54>>stream\n"
      "1 0 0 rg 0 0 40 30 re f BT /F 20 Tf 5 5 Td (ab) Tj ET \nendstream endobj\ntrailer<</Root 1 0 R>>\n");
  writeText(root / "helper-answer", "locked",
            std::string_view("tolvapdf\1\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 33));
  constexpr std::string_view png(
      "\x89PNG\r\n\x1a\n\0\0\0\rIHDR\0\0\0\1\0\0\0\1\10\2\0\0\0....\0\0\0\1IDATx....\0\0\0\0IEND....", 58);
  writeText(root / "helper-answer", "png", png);
  writeText(root / "helper-answer", "page",
            std::string("tolvapdf\0\1\0\0\0\0\0\0\0\0\0\0\0\0\0\xf0\x3f\0\0\0\0\0\0\xf0\x3f", 33).append(png));
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 2) return 2;
  path const root = arguments[1];
  writeDatabases(root / "database");
  writeText(root / "browse", "filters", std::string_view("\0\1\2\3\4\5\6\7\10\11\12\13\14\15\16\17\20\21\22\23", 20));
  writeText(root / "browse", "sorted", std::string_view("\2\0\1\0\3\0", 6));
  writePairs(root / "compare");
  writeDelimited(root / "csv");
  writeText(root / "json", "object", R"({"a":[1,2.5,-0,1e9,true,null,"\u00e9\/\n"],"a":{"b":""}})");
  writeText(root / "json", "value", R"({"blob":{"_0":"AAEC"}})");
  writeText(root / "json", "real", R"({"real":{"_0":0.30000000000000004}})");
  path const previews = root / "json-preview";
  writeText(previews, "object", R"({"b":[1,2.5,{"c":"\u00e9\/\n"}],"a":{"b":""},"a":null})");
  writeText(previews, "levels", std::string(63, '[') + "{\"\\\"\":0}" + std::string(63, ']'));
  writeText(previews, "strings", R"( ["[","\"","\\",1e-7,18446744073709551615,true] )");
  writeText(root / "query-script", "two", std::string_view("\0\1\2\0\1", 5));
  writeText(root / "query-script", "comments", std::string_view("\0\1\5\17\6\4\17\3\0\1\5\17", 12));
  writeText(root / "query-script", "trigger", std::string_view("\24\2\26\27\0\1\2\23\1\0", 10));
  writeText(root / "text", "mixed", "a\u00e9\u4e2d\U0001F600\r\n\xff\xc3\xed\xa0\x80 ");
  writeText(root / "text", "number", std::string_view("\x9a\x99\x99\x99\x99\x99\xb9\x3f", 8));
  writeHelperInput(root);
  writePreviews(root);
  path const modules = root / "virtual-module";
  writeText(modules, "plain", "CREATE VIRTUAL TABLE t USING fts5(x)");
  writeText(modules, "longest", "create virtual table if not exists main . \"a\"\"b\" using [FTS4] /* c */ (x, y)");
  writeText(modules, "comments",
            "\xEF\xBB\xBF"
            "CREATE--\nVIRTUAL/*(*/TABLE\t'using'/**/USING--x\n`fts3`;");
  writeText(modules, "name", "[a b]USING rtree(id,a,b)");
  writeText(modules, "table", "CREATE TABLE fts5(a DEFAULT 'USING fts5(', b CHECK(b > '--'))");
  return 0;
}
