// The directive grammar: what each parse object consumes and stores, the
// deliberate limits, and the unknown-directive report.
#include <gtest/gtest.h>

#include <cstdarg>
#include <string>

#include "format/directive.h"
#include "support/recording_trace.h"

using nuvtest::u16;

namespace {

struct Parsed {
  int consumed;
  OutputConversion conv;
};

// Parses the directive behind a '%' with the given variadic arguments.
int parse_with(OutputConversion* c, const char16_t* text, ...) {
  std::va_list ap;
  va_start(ap, text);
  OutputConversionCtor(c);
  const int r = OutputConversion_parse(c, text, &ap);
  va_end(ap);
  return r;
}

struct GrammarCase {
  const char* directive;  // what follows the '%'
  int consumed;           // -1: bad directive
  char symbol;
  int flags[5];           // - + space # 0
  int width;
  int precision;
  int length;
};

class Grammar : public ::testing::TestWithParam<GrammarCase> {};

TEST_P(Grammar, ParsesAsExpected) {
  const GrammarCase& g = GetParam();
  nuvtest::RecordingTrace trace(U16_TRACE_LOW);
  OutputConversion c;
  const std::u16string text = u16(g.directive);
  const int r = parse_with(&c, text.c_str());
  EXPECT_EQ(r, g.consumed) << g.directive;
  if (g.consumed > 0) {
    EXPECT_EQ(OutputConversionSpec_getSymbol(&c.spec), static_cast<NUV_UTF16>(g.symbol));
    EXPECT_EQ(OutputFlags_isLeftJustifiedFlag(&c.flags), g.flags[0]);
    EXPECT_EQ(OutputFlags_isSignConversionFlag(&c.flags), g.flags[1]);
    EXPECT_EQ(OutputFlags_isSpaceFlag(&c.flags), g.flags[2]);
    EXPECT_EQ(OutputFlags_isAlternativeFormFlag(&c.flags), g.flags[3]);
    EXPECT_EQ(OutputFlags_isZeroFlag(&c.flags), g.flags[4]);
    EXPECT_EQ(FieldWidth_getValue(&c.width), g.width);
    EXPECT_EQ(OutputPrecision_getValue(&c.precision), g.precision);
    EXPECT_EQ(LengthModifier_getValue(&c.length), g.length);
  }
  OutputConversionXtor(&c);
}

const GrammarCase kGrammar[] = {
    {"d", 1, 'd', {0, 0, 0, 0, 0}, -1, -1, 0},
    {"dx", 1, 'd', {0, 0, 0, 0, 0}, -1, -1, 0},
    {"-5d", 3, 'd', {1, 0, 0, 0, 0}, 5, -1, 0},
    {"--5d", 4, 'd', {1, 0, 0, 0, 0}, 5, -1, 0},
    {"----d", 5, 'd', {1, 0, 0, 0, 0}, -1, -1, 0},
    {"-----d", -1, 0, {}, 0, 0, 0},
    {"++d", -1, 0, {}, 0, 0, 0},
    {"  d", -1, 0, {}, 0, 0, 0},
    {"##x", -1, 0, {}, 0, 0, 0},
    {"00d", -1, 0, {}, 0, 0, 0},
    {"-+ #d", 5, 'd', {1, 1, 1, 1, 0}, -1, -1, 0},
    {"-+ #0d", -1, 0, {}, 0, 0, 0},
    {"0+ #-d", -1, 0, {}, 0, 0, 0},
    {"08.3f", 5, 'f', {0, 0, 0, 0, 1}, 8, 3, 0},
    {"012d", 4, 'd', {0, 0, 0, 0, 1}, 12, -1, 0},
    {".d", 2, 'd', {0, 0, 0, 0, 0}, -1, 0, 0},
    {".s", 2, 's', {0, 0, 0, 0, 0}, -1, 0, 0},
    {"10.20Lf", 7, 'f', {0, 0, 0, 0, 0}, 10, 20, kLengthLongDouble},
    {"4294967297d", 11, 'd', {0, 0, 0, 0, 0}, 1, -1, 0},  // wraps in 32 bits
    {"hhd", 3, 'd', {}, -1, -1, kLengthHH},
    {"hd", 2, 'd', {}, -1, -1, kLengthH},
    {"ld", 2, 'd', {}, -1, -1, kLengthL},
    {"lld", 3, 'd', {}, -1, -1, kLengthLL},
    {"jd", 2, 'd', {}, -1, -1, kLengthJ},
    {"zu", 2, 'u', {}, -1, -1, kLengthZ},
    {"tx", 2, 'x', {}, -1, -1, kLengthT},
    {"LG", 2, 'G', {}, -1, -1, kLengthLongDouble},
    {"ls", 2, 's', {}, -1, -1, kLengthL},
    {"hs", 2, 's', {}, -1, -1, kLengthH},
    {"Ld", 2, 'd', {}, -1, -1, kLengthLongDouble},
    {"l%", 2, '%', {}, -1, -1, kLengthL},
    {"5%", 2, '%', {}, 5, -1, 0},
    {"%", 1, '%', {}, -1, -1, 0},
    {"A", 1, 'A', {}, -1, -1, 0},
    {"F", 1, 'F', {}, -1, -1, 0},
    {"E", 1, 'E', {}, -1, -1, 0},
    {"X", 1, 'X', {}, -1, -1, 0},
    {"p", 1, 'p', {}, -1, -1, 0},
    {"c", 1, 'c', {}, -1, -1, 0},
    {"lA", 2, 'A', {}, -1, -1, kLengthL},
    {"lhd", -1, 0, {}, 0, 0, 0},
    {"lllx", -1, 0, {}, 0, 0, 0},
    {"n", -1, 0, {}, 0, 0, 0},
    {"ln", -1, 0, {}, 0, 0, 0},
    {"S", -1, 0, {}, 0, 0, 0},
    {"C", -1, 0, {}, 0, 0, 0},
    {"Z", -1, 0, {}, 0, 0, 0},
    {"[", -1, 0, {}, 0, 0, 0},
    {"b", -1, 0, {}, 0, 0, 0},
    {"q", -1, 0, {}, 0, 0, 0},
    {"1$d", -1, 0, {}, 0, 0, 0},
    {"", -1, 0, {}, 0, 0, 0},
    {"5", -1, 0, {}, 0, 0, 0},
    {"B", -1, 0, {}, 0, 0, 0},  // below 'L' and not a symbol
    {".-5d", -1, 0, {}, 0, 0, 0},
};
INSTANTIATE_TEST_SUITE_P(Directives, Grammar, ::testing::ValuesIn(kGrammar));

TEST(Grammar, StarTakesArgumentsInOrder) {
  OutputConversion c;
  EXPECT_EQ(parse_with(&c, u"*.*d", -3, -1), 4);
  EXPECT_EQ(FieldWidth_getValue(&c.width), -3);  // not turned into left justification
  EXPECT_FALSE(OutputFlags_isLeftJustifiedFlag(&c.flags));
  EXPECT_EQ(OutputPrecision_getValue(&c.precision), -1);
  EXPECT_FALSE(OutputPrecision_isDefined(&c.precision));
  OutputConversionXtor(&c);

  EXPECT_EQ(parse_with(&c, u"-*.*ls", 12, -7), 6);
  EXPECT_EQ(FieldWidth_getValue(&c.width), 12);
  EXPECT_EQ(OutputPrecision_getValue(&c.precision), -7);
  EXPECT_TRUE(OutputPrecision_isDefined(&c.precision));
  OutputConversionXtor(&c);
}

TEST(Grammar, ArgumentListIsAdvancedForTheCaller) {
  auto run = [](const char16_t* fmt, ...) {
    std::va_list ap;
    va_start(ap, fmt);
    OutputConversion c;
    OutputConversionCtor(&c);
    OutputConversion_parse(&c, fmt, &ap);
    const int next = va_arg(ap, int);
    va_end(ap);
    return next;
  };
  EXPECT_EQ(run(u"*.*d", 1, 2, 99), 99);
  EXPECT_EQ(run(u"*d", 1, 98), 98);
  EXPECT_EQ(run(u"5.3d", 97), 97);
}

TEST(Flags, FifthFlagSwitchesOnButIsNotConsumed) {
  OutputFlags f;
  OutputFlagsCtor(&f);
  EXPECT_EQ(OutputFlags_parse(&f, u"-+ #0d"), 4);
  EXPECT_EQ(f.zero, 1);
  OutputFlagsCtor(&f);
  EXPECT_EQ(OutputFlags_parse(&f, u"--+d"), 3);
  OutputFlagsCtor(&f);
  EXPECT_EQ(OutputFlags_parse(&f, u"+-+d"), 2);
}

TEST(SharedPieces, WidthAndModifierWithoutArguments) {
  // The scanf engine parses widths without '*' and passes no argument list.
  FieldWidth w;
  FieldWidthCtor(&w);
  EXPECT_FALSE(FieldWidth_isDefined(&w));
  EXPECT_EQ(FieldWidth_parse(&w, u"*5", nullptr), 0);
  EXPECT_EQ(FieldWidth_parse(&w, u"x", nullptr), 0);
  EXPECT_FALSE(FieldWidth_isDefined(&w));
  EXPECT_EQ(FieldWidth_parse(&w, u"0123s", nullptr), 4);
  EXPECT_EQ(FieldWidth_getValue(&w), 123);

  struct {
    const char16_t* text;
    int consumed;
    int code;
  } const mods[] = {{u"hhd", 2, 2}, {u"hd", 1, 4},  {u"ld", 1, 8},   {u"lld", 2, 16},
                    {u"jd", 1, 32}, {u"zd", 1, 64}, {u"td", 1, 128}, {u"Lf", 1, 256}};
  for (const auto& m : mods) {
    LengthModifier l;
    LengthModifierCtor(&l);
    EXPECT_EQ(LengthModifier_parse(&l, m.text), m.consumed);
    EXPECT_EQ(LengthModifier_getValue(&l), m.code);
    EXPECT_EQ(LengthModifier_isLongValue(&l), m.code == 8);
    EXPECT_EQ(LengthModifier_isLongLong(&l), m.code == 16);
    EXPECT_EQ(LengthModifier_isLongDoubleValue(&l), m.code == 256);
  }
  LengthModifier l;
  LengthModifierCtor(&l);
  EXPECT_EQ(LengthModifier_parse(&l, u"qd"), 0);
  EXPECT_EQ(LengthModifier_getValue(&l), 0);
}

TEST(Symbol, SetOnlyAcceptsTheSymbolSet) {
  const std::u16string accepted = u"%AEFGXacdefgiopsux";
  const std::u16string numeric = u"AEFGXadefgioux";
  for (int u = 0; u < 0x10000; ++u) {
    OutputConversionSpec s;
    OutputConversionSpecCtor(&s);
    OutputConversionSpec_setSymbol(&s, static_cast<NUV_UTF16>(u));
    const bool ok = accepted.find(static_cast<char16_t>(u)) != std::u16string::npos;
    ASSERT_EQ(OutputConversionSpec_getSymbol(&s), ok ? u : 0) << u;
    ASSERT_EQ(OutputConversionSpec_isNumber(&s) != 0, ok && numeric.find(static_cast<char16_t>(u)) != std::u16string::npos);
    OutputConversionSpecXtor(&s);
  }
}

TEST(Report, UnknownDirectiveIsReportedAboveLevelThree) {
  {
    nuvtest::RecordingTrace trace(U16_TRACE_MEDIUM);
    OutputConversion c;
    EXPECT_EQ(parse_with(&c, u"-5Qrest"), -1);
    ASSERT_GE(trace.lines.size(), 1u);
    EXPECT_NE(trace.lines[0].find("u16_OutCon"), std::string::npos);
    EXPECT_NE(trace.lines[0].find("116"), std::string::npos);
    EXPECT_NE(nuvtest::after_header(trace.lines[0]).find("Error in format string at or near 'Q':\n-5Qrest"),
              std::string::npos)
        << trace.lines[0];
  }
  {
    nuvtest::RecordingTrace trace(3);
    OutputConversion c;
    EXPECT_EQ(parse_with(&c, u"n"), -1);
    EXPECT_TRUE(trace.lines.empty());
  }
}

}  // namespace
