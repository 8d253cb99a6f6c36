// One table, read in both directions.
#include "mime/CharsetNames.h"

#include "base/Ascii.h"

namespace tv {
namespace {

// The numbers are those of Windows; 1 is ours, for a text whose charset nobody knows (RFC 1428).
// The first name of a code page is the one that is written; the others are understood.
constexpr struct {
    uint32_t codePage;
    std::string_view name;
} kCharsets[] = {
    {65001, "utf-8"},       {65001, "utf8"},        {20127, "us-ascii"},    {20127, "ascii"},
    {28591, "iso-8859-1"},  {28591, "iso8859-1"},   {28591, "latin1"},      {28592, "iso-8859-2"},
    {28592, "iso8859-2"},   {28592, "latin2"},      {28593, "iso-8859-3"},  {28594, "iso-8859-4"},
    {28595, "iso-8859-5"},  {28596, "iso-8859-6"},  {28597, "iso-8859-7"},  {28598, "iso-8859-8"},
    {28599, "iso-8859-9"},  {28603, "iso-8859-13"}, {28605, "iso-8859-15"}, {1250, "windows-1250"},
    {1250, "cp1250"},       {1251, "windows-1251"}, {1251, "cp1251"},       {1252, "windows-1252"},
    {1252, "cp1252"},       {1253, "windows-1253"}, {1254, "windows-1254"}, {1255, "windows-1255"},
    {1256, "windows-1256"}, {1257, "windows-1257"}, {1258, "windows-1258"}, {437, "ibm437"},
    {437, "cp437"},         {850, "ibm850"},        {850, "cp850"},         {852, "ibm852"},
    {852, "cp852"},         {866, "ibm866"},        {874, "windows-874"},   {874, "tis-620"},
    {932, "shift_jis"},     {936, "gb2312"},        {936, "gbk"},           {949, "ks_c_5601-1987"},
    {949, "euc-kr"},        {950, "big5"},          {1200, "utf-16"},       {1200, "utf-16le"},
    {1201, "utf-16be"},     {1361, "johab"},        {20866, "koi8-r"},      {21866, "koi8-u"},
    {50220, "iso-2022-jp"}, {51932, "euc-jp"},      {52936, "hz-gb-2312"},  {54936, "gb18030"},
    {65000, "utf-7"},       {1, "unknown-8bit"},
};

}  // namespace

std::string_view charsetName(uint32_t codePage) {
    for (const auto& row : kCharsets) {
        if (row.codePage == codePage) return row.name;
    }
    return "utf-8";
}

uint32_t codePageOfCharset(std::string_view name) {
    for (const auto& row : kCharsets) {
        if (equalsIgnoreCase(row.name, name)) return row.codePage;
    }
    return 0;
}

}  // namespace tv
