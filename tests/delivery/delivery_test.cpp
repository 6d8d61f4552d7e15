// The form handler's library: what a post means, the mail it becomes, the
// answer the visitor gets, and the handler's decisions for hostile posts,
// against the SQLite store in a fresh folder per test. Every composed mail
// is parsed back with GMime, so a header that a visitor managed to bend
// shows as what a mail reader would see.
#include <gmime/gmime.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "../../fuzz/delivery_checks.h"
#include "delivery/address.h"
#include "delivery/answer_page.h"
#include "delivery/config.h"
#include "delivery/csv.h"
#include "delivery/form_decode.h"
#include "delivery/handler.h"
#include "delivery/mail_message.h"
#include "delivery/posted_form.h"
#include "delivery/rate_limit.h"
#include "delivery/recipient_policy.h"
#include "delivery/store/sqlite_store.h"
#include "test_support.h"

namespace formwiz::delivery {
namespace {

namespace fs = std::filesystem;
using store::Field;
using store::Status;
using Json = nlohmann::json;

using testing::TempDir;

// ---------------------------------------------------------------------------
// A composed mail, parsed back.

struct ParsedMail {
  int to_headers = 0;
  std::string subject, from, to, reply_to, message_id, content_type;
  std::string body;        // the text/plain part, decoded, LF line ends
  std::string attachment;  // the text/csv part, decoded
  std::string attachment_name;
};

std::string PartText(GMimePart* part) {
  GMimeStream* stream = g_mime_stream_mem_new();
  g_mime_data_wrapper_write_to_stream(g_mime_part_get_content(part), stream);
  GByteArray* bytes =
      g_mime_stream_mem_get_byte_array(GMIME_STREAM_MEM(stream));
  std::string text(reinterpret_cast<char*>(bytes->data), bytes->len);
  g_object_unref(stream);
  return text;
}

std::string Lf(std::string text) {
  for (size_t at; (at = text.find("\r\n")) != std::string::npos;) {
    text.erase(at, 1);
  }
  return text;
}

std::string Addresses(InternetAddressList* list) {
  if (list == nullptr || internet_address_list_length(list) == 0) return "";
  char* text = internet_address_list_to_string(list, nullptr, FALSE);
  std::string out(text);
  g_free(text);
  return out;
}

// Checks what must hold for every mail, whatever was posted (the fuzz
// target's check), then parses it.
ParsedMail ParseMail(const std::string& raw) {
  ParsedMail mail;
  EXPECT_EQ(fuzz::delivery_checks::CheckMailText(raw), "");
  const std::string headers = "\r\n" + raw.substr(0, raw.find("\r\n\r\n"));
  for (size_t at = 0; (at = headers.find("\r\nTo:", at)) != std::string::npos;
       ++at) {
    ++mail.to_headers;
  }
  InitMime();
  GMimeStream* stream =
      g_mime_stream_mem_new_with_buffer(raw.data(), raw.size());
  GMimeParser* parser = g_mime_parser_new_with_stream(stream);
  GMimeMessage* message = g_mime_parser_construct_message(parser, nullptr);
  g_object_unref(parser);
  g_object_unref(stream);
  if (message == nullptr) {
    ADD_FAILURE() << "GMime cannot read the mail";
    return mail;
  }
  mail.subject = fuzz::delivery_checks::ReaderSubject(message);
  mail.from = Addresses(g_mime_message_get_from(message));
  mail.to = Addresses(g_mime_message_get_to(message));
  mail.reply_to = Addresses(g_mime_message_get_reply_to(message));
  const char* id =
      g_mime_object_get_header(GMIME_OBJECT(message), "Message-Id");
  mail.message_id = id != nullptr ? id : "";
  GMimeObject* top = g_mime_message_get_mime_part(message);
  char* type =
      g_mime_content_type_get_mime_type(g_mime_object_get_content_type(top));
  mail.content_type = type;
  g_free(type);
  std::vector<GMimeObject*> parts;
  if (GMIME_IS_MULTIPART(top)) {
    GMimeMultipart* multipart = GMIME_MULTIPART(top);
    for (int i = 0; i < g_mime_multipart_get_count(multipart); ++i) {
      parts.push_back(g_mime_multipart_get_part(multipart, i));
    }
  } else {
    parts.push_back(top);
  }
  for (GMimeObject* part : parts) {
    GMimeContentType* ct = g_mime_object_get_content_type(part);
    EXPECT_STREQ(g_mime_content_type_get_parameter(ct, "charset"), "utf-8");
    if (g_mime_content_type_is_type(ct, "text", "plain")) {
      mail.body = Lf(PartText(GMIME_PART(part)));
    } else if (g_mime_content_type_is_type(ct, "text", "csv")) {
      mail.attachment = PartText(GMIME_PART(part));
      const char* name = g_mime_part_get_filename(GMIME_PART(part));
      mail.attachment_name = name != nullptr ? name : "";
    } else {
      ADD_FAILURE() << "unexpected part";
    }
  }
  g_object_unref(message);
  return mail;
}

std::string Encode(const std::string& text) {
  char* escaped = g_uri_escape_string(text.c_str(), nullptr, FALSE);
  std::string out(escaped);
  g_free(escaped);
  return out;
}

// ---------------------------------------------------------------------------
// Decoding the body and reading the form.

TEST(FormDecodeTest, BodiesWithinAndBeyondTheLimits) {
  Limits limits;
  limits.max_body = 200;
  limits.max_fields = 3;
  limits.max_name_length = 8;
  limits.max_value_length = 16;
  struct Row {
    std::string body;
    int status;  // 200: decoded
    std::vector<Field> pairs;
  };
  const std::vector<Row> rows = {
      {"", 200, {}},
      {"a=1&b=x+y%2Bz&a=%C3%A9",
       200,
       {{"a", "1"}, {"b", "x y+z"}, {"a", "\xC3\xA9"}}},
      {"msg=l1%0D%0Al2%09t", 200, {{"msg", "l1\r\nl2\tt"}}},
      {"e=", 200, {{"e", ""}}},
      {std::string(201, 'a'), 413, {}},
      {"a=1&b=2&c=3&d=4", 413, {}},
      {"abcdefghi=1", 413, {}},
      {"a=" + std::string(17, 'v'), 413, {}},
      {"a=%ZZ", 400, {}},
      {"a=%", 400, {}},
      {"a=%FF", 400, {}},     // not UTF-8
      {"a=%C3%28", 400, {}},  // not UTF-8
      {"%FF=1", 400, {}},
      {"a=%00", 400, {}},  // escaped NUL
      {std::string("a=x\0y", 5), 400, {}},
      {"a%0Ab=1", 400, {}},     // LF in a name
      {"a%7Fb=1", 400, {}},     // DEL in a name
      {"a%C2%85b=1", 400, {}},  // NEL (C1) in a name
      {"noequals", 400, {}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.body);
    const Decoded decoded = DecodeUrlEncoded(row.body, limits);
    EXPECT_EQ(decoded.ok, row.status == 200);
    if (decoded.ok) {
      EXPECT_EQ(decoded.pairs, row.pairs);
    } else {
      EXPECT_EQ(decoded.status, row.status) << decoded.error;
      EXPECT_FALSE(decoded.error.empty());
    }
  }
}

TEST(FormDecodeTest, MediaTypes) {
  const std::vector<std::pair<std::string, bool>> rows = {
      {"application/x-www-form-urlencoded", true},
      {"Application/X-WWW-Form-Urlencoded", true},
      {"application/x-www-form-urlencoded; charset=UTF-8", true},
      {"application/x-www-form-urlencoded;charset=\"utf-8\"", true},
      {"application/x-www-form-urlencoded; charset=iso-8859-1", false},
      {"multipart/form-data; boundary=x", false},
      {"text/plain", false},
      {"application/json", false},
      {"", false},
      {"garbage", false},
  };
  for (const auto& [type, expected] : rows) {
    EXPECT_EQ(IsUrlEncoded(type), expected) << type;
  }
}

TEST(PostedFormTest, FieldsFollowTheSortOrderThenThePostedOrder) {
  const PostedForm form = ReadPostedForm({
      {"Email", "jane@example.org"},
      {"Extra", "1"},
      {"qln_SortOrder", " Comments , Name,Email,Name,,qln_Subject,Missing"},
      {"Name", "Jane"},
      {"qln_EmailTo", "owner@example.org"},
      {"Comments", "hi"},
      {"Name", "Doe"},
      {"qln_Website", ""},
      {"qln_SendMode", " 2 "},
      {"qln_FormIndex", "3rd"},
      {"qln_Subject", "Hello"},
      {"qln_Subject", "Ignored"},
      {"qln_Other", "never a field"},
      {"Later", "2"},
  });
  const std::vector<Field> expected = {
      {"Comments", "hi"}, {"Name", "Jane, Doe"}, {"Email", "jane@example.org"},
      {"Missing", ""},    {"Extra", "1"},        {"Later", "2"}};
  EXPECT_EQ(form.fields, expected);
  EXPECT_EQ(form.email_to, "owner@example.org");
  EXPECT_EQ(form.subject, "Hello");
  EXPECT_EQ(form.send_mode, "2");
  EXPECT_EQ(form.form_index, 3);
  EXPECT_FALSE(form.honeypot_filled);

  const PostedForm other = ReadPostedForm({{"qln_SendMode", "3"},
                                           {"qln_FormIndex", "x"},
                                           {"qln_Website", "http://spam"},
                                           {"B", "b"},
                                           {"A", "a"}});
  EXPECT_EQ(other.send_mode, "1");
  EXPECT_EQ(other.form_index, 0);
  EXPECT_TRUE(other.honeypot_filled);
  EXPECT_EQ(other.fields, (std::vector<Field>{{"B", "b"}, {"A", "a"}}));
}

// ---------------------------------------------------------------------------
// The pieces of the mail.

TEST(CsvTest, QuotesWhatRfc4180Says) {
  const std::vector<std::pair<std::vector<std::string>, std::string>> rows = {
      {{"a", "b"}, "a,b\r\n"},
      {{"a,b", "c"}, "\"a,b\",c\r\n"},
      {{"say \"hi\""}, "\"say \"\"hi\"\"\"\r\n"},
      {{"l1\nl2", "x\ry"}, "\"l1\nl2\",\"x\ry\"\r\n"},
      {{"", ""}, ",\r\n"},
      {{" spaced ", "=1+2"}, " spaced ,=1+2\r\n"},
  };
  for (const auto& [cells, expected] : rows) {
    EXPECT_EQ(CsvRecord(cells), expected);
  }
}

TEST(AddressTest, OnlyOneBareMailboxPasses) {
  const std::vector<std::pair<std::string, std::string>> rows = {
      {"jane@example.org", "jane@example.org"},
      {"  jane@example.org ", "jane@example.org"},
      {"Jane Doe <jane@example.org>", "jane@example.org"},
      {"j@ex\xC3\xA4mple.org", "j@xn--exmple-cua.org"},
      {"Jane <j@xn--exmple-cua.org>", "j@xn--exmple-cua.org"},
      {"j\xC3\xA9@example.org", ""},
      {"jane", ""},
      {"@example.org", ""},
      {"jane@", ""},
      {"a@example.org, b@example.org", ""},
      {"a@example.org,", ""},
      {"a@b@example.org", ""},
      {"a@example.org>", ""},
      {"a@example..org", ""},
      {"Jane <jane@example.,rg>", ""},
      {"group: a@example.org;", ""},
      {"\"a b\"@example.org", ""},
      {"a@[127.0.0.1]", ""},
      {"jane@example.org\r\nBcc: x@evil.test", ""},
      {"jane@example.org\nBcc: x@evil.test", ""},
      {"jane@example.org\t", ""},
      {"", ""},
      // What a mail reader could decode into a line break never passes.
      {"owner@x=?utf-8?q?=0D=0ABcc_x?=", ""},
      {"=?utf-8?q?=0D=0A?=@example.org", ""},
      {"o'brien+forms@mail-1.example.org", "o'brien+forms@mail-1.example.org"},
      {"a@-example.org", ""},
      {"a@exa$mple.org", ""},
      {".a@example.org", ""},
      {"forms@localhost", "forms@localhost"},
  };
  for (const auto& [text, expected] : rows) {
    EXPECT_EQ(ParseSingleAddress(text).value_or(""), expected) << text;
  }
  EXPECT_EQ(AddressDomain("Jane@Example.ORG"), "example.org");
}

TEST(MailTextTest, BodiesSubjectsAndReplyTo) {
  EXPECT_EQ(HumanReadableBody({{"Name", "Jane"},
                               {"Comments", "l1\r\nl2\rl3\n"},
                               {"Empty", ""},
                               {"Odd",
                                "a\x01"
                                "b\tc\x1b[2J"}}),
            "Name: Jane\n\nComments: l1\n  l2\n  l3\n  \n\nEmpty:\n\n"
            "Odd: a\xEF\xBF\xBD"
            "b\tc\xEF\xBF\xBD[2J\n");
  EXPECT_EQ(CommaSeparatedBody({{"Name", "Doe, Jane"}, {"Note", "a\r\nb"}}),
            "Name,Note\r\n\"Doe, Jane\",\"a\nb\"\r\n");

  const std::vector<std::pair<std::string, std::string>> subjects = {
      {"Hello", "Hello"},
      {"  Hi\r\nBcc: x@evil.test ", "Hi  Bcc: x@evil.test"},
      {"\r\n\t", "Default"},
      {"", "Default"},
      {"a =?utf-8?q?=0D=0ABcc:_x?= b", "a = ?utf-8?q?=0D=0ABcc:_x?= b"},
      {std::string(300, 'x'), std::string(200, 'x')},
      {std::string(199, 'x') + "\xC3\xA9\xC3\xA9",
       std::string(199, 'x') + "\xC3\xA9"},
  };
  for (const auto& [subject, expected] : subjects) {
    EXPECT_EQ(CleanSubject(subject, "Default"), expected) << subject;
  }

  using Fields = std::vector<Field>;
  const std::vector<std::pair<Fields, std::string>> replies = {
      {{{"Email", "not one"}, {"E-mail", "x@example.org"}}, "x@example.org"},
      {{{"Name", "a@example.org"}}, ""},
      {{{"email", "a@example.org, c@example.org"}}, ""},
      {{{"Your Email", "Jane <j@example.org>"}}, "j@example.org"},
      {{{"reply_to", "r@example.org"}}, "r@example.org"},
      {{{"email", "a@example.org\r\nBcc: c@example.org"}}, ""},
      {{{"EmailAddress", "e@example.org"}, {"email", "f@example.org"}},
       "e@example.org"},
  };
  for (const auto& [fields, expected] : replies) {
    EXPECT_EQ(ReplyToFrom(fields).value_or(""), expected) << fields[0].name;
  }
}

TEST(ComposeMailTest, BothModesParseBackWithEveryPart) {
  MailInput input;
  input.from = "forms@example.net";
  input.to = "owner@example.org";
  input.subject = "Caf\xC3\xA9 order \xE2\x80\x94 r\xC3\xA9sum\xC3\xA9";
  input.fields = {{"Name", "Ren\xC3\xA9 <b>bold</b>"},
                  {"Email", "rene@example.org"},
                  {"Comments", "first line\r\nsecond, \"quoted\"\r\n" +
                                   std::string(1200, 'z')}};
  input.page = "http://example.org/contact.html?" + std::string(3000, 'p');
  input.client = "192.0.2.7";
  input.received_at = 1700000000;
  input.message_id = "<0123abcd@example.net>";

  // From, To, Reply-To and the subject as a reader decodes them.
  EXPECT_EQ(fuzz::delivery_checks::CheckMail(ComposeMail(input), input), "");
  const ParsedMail human = ParseMail(ComposeMail(input));
  EXPECT_EQ(human.message_id, "<0123abcd@example.net>");
  EXPECT_EQ(human.content_type, "text/plain");
  EXPECT_EQ(human.body, HumanReadableBody(input.fields));
  EXPECT_NE(human.body.find("Name: Ren\xC3\xA9 <b>bold</b>\n"),
            std::string::npos);

  input.comma_separated = true;
  EXPECT_EQ(fuzz::delivery_checks::CheckMail(ComposeMail(input), input), "");
  const ParsedMail csv = ParseMail(ComposeMail(input));
  EXPECT_EQ(csv.content_type, "multipart/mixed");
  EXPECT_EQ(csv.attachment_name, "submission.csv");
  EXPECT_EQ(Lf(csv.attachment), Lf(CommaSeparatedBody(input.fields)));
  EXPECT_EQ(csv.body, Lf(CommaSeparatedBody(input.fields)));
}

// ---------------------------------------------------------------------------
// The answer page.

TEST(AnswerTest, JsonOrHtmlAsTheClientAsks) {
  const std::vector<std::pair<std::string, bool>> rows = {
      {"application/json", true},
      {"APPLICATION/JSON", true},
      {"application/json, text/html", true},
      {"text/html;q=0.5, application/json", true},
      {"application/json;q=1, text/html;q=1", true},
      {"", false},
      {"*/*", false},
      {"text/html", false},
      {"text/html,application/xhtml+xml,application/xml;q=0.9,*/*;q=0.8",
       false},
      {"text/html, application/json", false},
      {"text/html, application/json;q=0.9", false},
      {"application/json;q=0", false},
      {"application/json;q=abc", false},
  };
  for (const auto& [accept, expected] : rows) {
    EXPECT_EQ(WantsJson(accept), expected) << accept;
  }

  const std::vector<std::pair<std::string, bool>> links = {
      {"http://example.org/page.html", true},
      {"HTTPS://example.org/a?b=c#d", true},
      {"javascript:alert(1)", false},
      {"data:text/html,<script>", false},
      {"/relative/page.html", false},
      {"ftp://example.org/", false},
      {"http:///nohost", false},
      {"http://example.org/\r\nX: y", false},
      {"http://example.org/a b", false},
      {"http://example.org/?q=\"><x>", false},
      {"http://example.org/" + std::string(3000, 'a'), false},
  };
  for (const auto& [referer, kept] : links) {
    EXPECT_EQ(SafeBackLink(referer), kept ? referer : "") << referer;
  }

  const Answer answer{true, "Thank you", "Got \"it\" \xFF", "", 42};
  EXPECT_EQ(Json::parse(AnswerJson(answer)),
            Json::parse(R"({"ok":true,"id":42,"title":"Thank you",
                            "message":"Got \"it\" \ufffd"})"));
}

size_t Count(const std::string& text, char c) {
  return std::count(text.begin(), text.end(), c);
}

const std::vector<std::string> kMarkup = {
    "<script>alert(1)</script>",
    "\"><img src=x onerror=alert(1)>",
    "</p></main><h1>fake</h1><!--",
    "a & b &amp; <b>c</b>\r\nline two\nline three",
    "ctl \x01\x0b\x7f \xC2\x85 nonchar \xEF\xB7\x90 \xEF\xBF\xBF end",
};

// The '<' and '>' of an answer come from its template only: the same
// answer with harmless text has as many.
TEST(AnswerTest, VisitorTextIsNeverMarkupAndThePageIsValid) {
  const std::string plain =
      AnswerHtml({true, "T", "m", "http://a.example/", 1});
  std::vector<std::string> pages;
  for (const std::string& text : kMarkup) {
    const std::string html =
        AnswerHtml({false, text, text, "http://a.example/?q=%22%3E&r=1", 1});
    EXPECT_EQ(Count(html, '<'), Count(plain, '<')) << html;
    EXPECT_EQ(Count(html, '>'), Count(plain, '>')) << html;
    pages.push_back(html);
  }
  pages.push_back(AnswerHtml({true, "", "", "", 0}));
  EXPECT_NE(pages[3].find("white-space:pre-line"), std::string::npos);
  EXPECT_NE(pages[3].find("line two\nline three"), std::string::npos);

  // The Nu Html Checker, when scripts/bootstrap could install it.
  const char* set = std::getenv("FORMWIZ_VNU_JAR");
  const std::string jar =
      set != nullptr ? set
                     : FORMWIZ_SOURCE_DIR
          "/build/tools/node_modules/vnu-jar/build/dist/vnu.jar";
  if (access(jar.c_str(), R_OK) != 0 || access("/usr/bin/java", X_OK) != 0) {
    GTEST_SKIP() << "the Nu Html Checker is not installed: not run";
  }
  TempDir dir;
  std::vector<std::string> command = {
      "/usr/bin/java",      "-jar",     jar,        "--errors-only",
      "--exit-zero-always", "--stdout", "--format", "json"};
  for (size_t i = 0; i < pages.size(); ++i) {
    command.push_back(
        dir.File("answer" + std::to_string(i) + ".html", pages[i]));
  }
  const testing::ProgramRun run = testing::RunProgram(command, "", {}, 120);
  ASSERT_EQ(run.status, 0) << run.err;
  const std::string& out = run.out;
  const Json report = Json::parse(out, nullptr, false);
  ASSERT_TRUE(report.contains("messages")) << out;
  for (const Json& m : report["messages"]) {
    ADD_FAILURE() << m.value("url", "") << ":" << m.value("lastLine", 0) << ": "
                  << m.value("message", "");
  }
}

// ---------------------------------------------------------------------------
// Rates.

TEST(RateLimitTest, TokenBucketsRefillAndStayBounded) {
  TokenBucketLimiter limiter(60, 3, 4);  // one a second, three at once
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(limiter.Allow("a", 0));
  EXPECT_FALSE(limiter.Allow("a", 0));
  EXPECT_FALSE(limiter.Allow("a", 999));
  EXPECT_TRUE(limiter.Allow("a", 1000));
  EXPECT_FALSE(limiter.Allow("a", 1000));
  EXPECT_TRUE(limiter.Allow("b", 1000));  // each address its own bucket
  EXPECT_FALSE(limiter.Allow("a", 500));  // a clock stepping back gives none

  // Four buckets at most: a fifth address drops the stalest (a's), so a
  // starts afresh while the others keep what they spent.
  TokenBucketLimiter small(1, 1, 4);
  for (const char* c : {"a", "b", "c", "d"}) EXPECT_TRUE(small.Allow(c, 0));
  EXPECT_FALSE(small.Allow("a", 1));
  for (const char* c : {"b", "c", "d"}) EXPECT_FALSE(small.Allow(c, 2));
  EXPECT_TRUE(small.Allow("e", 3));
  EXPECT_TRUE(small.Allow("a", 4));
  EXPECT_FALSE(small.Allow("d", 5));
}

TEST(RateLimitTest, TheStoreCountsTheLastMinute) {
  TempDir dir;
  store::SqliteStore store((dir.path() / "s.sqlite3").string());
  int n = 0;
  for (int64_t at : {1000, 1050, 1059}) {
    store::SubmissionRecord record;
    record.key = "k" + std::to_string(++n);
    record.client = "192.0.2.1";
    record.received_at = at;
    record.status = Status::kSpam;
    store.Add(record);
  }
  StoreRateLimiter limiter(store, 2);
  EXPECT_FALSE(limiter.Allow("192.0.2.1", 1059'000));  // three in a minute
  EXPECT_FALSE(limiter.Allow("192.0.2.1", 1109'999));  // 1050, 1059 count
  EXPECT_TRUE(limiter.Allow("192.0.2.1", 1110'000));   // 1059 alone
  EXPECT_TRUE(limiter.Allow("192.0.2.2", 1059'000));
}

// ---------------------------------------------------------------------------
// The configuration file.

TEST(ConfigTest, EveryKeyIsRead) {
  TempDir dir;
  dir.File("password", "s3cret\n");
  const std::string path = dir.File("formwiz.toml", R"(
[server]
listen = "127.0.0.1:9000"
data = "/var/lib/formwiz"
[store]
url = "postgresql://forms@db.example.net/formwiz"
[mail]
from = "Forms <forms@example.net>"
default_subject = "A form"
smtp = "smtp://mail.example.net:587"
smtp_user = "forms"
smtp_password_file = "password"
starttls = "required"
timeout_seconds = 20
sendmail = "/usr/sbin/sendmail"
[recipients]
allow = ["owner@example.org"]
allow_domains = ["Example.COM", "b\u00FCcher.example"]
[recipients.aliases]
sales = "sales@example.com"
[limits]
max_body = 1000
max_fields = 10
max_name_length = 20
max_value_length = 500
rate_per_minute = 5
rate_burst = 2
timeout_seconds = 7
connections_per_ip = 3
[outbox]
lease_seconds = 60
batch = 4
max_attempts = 9
first_backoff_seconds = 10
max_backoff_seconds = 100
)");
  std::string error;
  const std::optional<Config> config = LoadConfig(path, error);
  ASSERT_TRUE(config) << error;
  EXPECT_EQ(config->listen, "127.0.0.1:9000");
  EXPECT_EQ(config->data_dir, "/var/lib/formwiz");
  EXPECT_EQ(config->store_url, "postgresql://forms@db.example.net/formwiz");
  EXPECT_EQ(config->from, "forms@example.net");
  EXPECT_EQ(config->default_subject, "A form");
  EXPECT_EQ(config->smtp.url, "smtp://mail.example.net:587");
  EXPECT_EQ(config->smtp.user, "forms");
  EXPECT_EQ(config->smtp.password, "s3cret");
  EXPECT_EQ(config->smtp.starttls, "required");
  EXPECT_EQ(config->smtp.timeout_seconds, 20);
  EXPECT_EQ(config->sendmail, "/usr/sbin/sendmail");
  EXPECT_EQ(config->allow_addresses,
            std::vector<std::string>{"owner@example.org"});
  EXPECT_EQ(config->allow_domains,
            (std::vector<std::string>{"example.com", "xn--bcher-kva.example"}));
  EXPECT_EQ(config->aliases.at("sales"), "sales@example.com");
  const Limits& l = config->limits;
  EXPECT_EQ(std::vector<size_t>({l.max_body, l.max_fields, l.max_name_length,
                                 l.max_value_length}),
            std::vector<size_t>({1000, 10, 20, 500}));
  EXPECT_EQ(std::vector<int>({l.rate_per_minute, l.rate_burst,
                              l.timeout_seconds, l.connections_per_ip}),
            std::vector<int>({5, 2, 7, 3}));
  const store::OutboxSettings& o = config->outbox;
  EXPECT_EQ(std::vector<int>({o.lease_seconds, o.batch, o.max_attempts,
                              o.first_backoff_seconds, o.max_backoff_seconds}),
            std::vector<int>({60, 4, 9, 10, 100}));
  EXPECT_TRUE(config->CanSend());

  const std::optional<Config> defaults =
      LoadConfig(dir.File("empty.toml", ""), error);
  ASSERT_TRUE(defaults) << error;
  EXPECT_EQ(defaults->listen, "127.0.0.1:8080");
  EXPECT_FALSE(defaults->CanSend());
}

TEST(ConfigTest, MistakesNameTheFileLineAndKey) {
  TempDir dir;
  const std::vector<std::pair<std::string, std::string>> rows = {
      {"[server\nlisten = 1\n", ":1:"},
      {"[server]\nlisten = \"a\"\nlisten = \"b\"\n", ":3:"},
      {"[srv]\n", ":1: srv: unknown table"},
      {"[mail]\nfrom = \"a@example.org\"\nbogus = 1\n", ":3: mail.bogus"},
      {"\nserver = 1\n", ":2: server: must be a table"},
      {"[limits]\nmax_body = \"big\"\n", ":2: limits.max_body: must be an int"},
      {"[limits]\nrate_per_minute = 0\n", ":2: limits.rate_per_minute"},
      {"[limits]\nmax_fields = -5\n", ":2: limits.max_fields"},
      {"[recipients]\nallow = [\"owner@example.org\",\n \"nobody\"]\n",
       ":3: recipients.allow: \"nobody\""},
      {"[recipients]\nallow_domains = [\"a@b\"]\n",
       ":2: recipients.allow_domains: \"a@b\""},
      {"[recipients.aliases]\nsales = \"not an address\"\n",
       ":2: recipients.aliases.sales"},
      {"[mail]\nfrom = \"a@example.org, b@example.org\"\n", ":2: mail.from"},
      {"[mail]\nstarttls = \"maybe\"\n", ":2: mail.starttls"},
      {"[mail]\nsmtp = \"http://example.org\"\n", ":2: mail.smtp"},
      {"[mail]\nsmtp_password_file = \"absent\"\n",
       ":2: mail.smtp_password_file: cannot read"},
      {"[mail]\nsmtp_password = \"x\"\nsmtp_password_file = \"f\"\n",
       ":3: mail.smtp_password_file"},
      {"[outbox]\nfirst_backoff_seconds = 50\nmax_backoff_seconds = 10\n",
       ":3: outbox.max_backoff_seconds"},
      {"[store]\nurl = \"mysql://db/formwiz\"\n", ":2: store.url"},
      {"[store]\nhost = \"db\"\n", ":2: store.host"},
  };
  int n = 0;
  for (const auto& [text, expected] : rows) {
    const std::string path =
        dir.File("c" + std::to_string(++n) + ".toml", text);
    std::string error;
    EXPECT_FALSE(LoadConfig(path, error)) << text;
    EXPECT_NE(error.find(path + expected), std::string::npos)
        << text << "\ngave: " << error;
  }
  std::string error;
  EXPECT_FALSE(LoadConfig((dir.path() / "missing.toml").string(), error));
  EXPECT_NE(error.find("missing.toml"), std::string::npos);
}

// ---------------------------------------------------------------------------
// The handler.

// The real store, made to fail on demand.
class FailingStore : public store::SqliteStore {
 public:
  using SqliteStore::SqliteStore;
  bool fail = false;
  int64_t Add(store::SubmissionRecord& record) override {
    if (fail) throw store::StoreError("disk full");
    return SqliteStore::Add(record);
  }
};

class HandlerTest : public ::testing::Test {
 protected:
  HandlerTest()
      : store_((dir_.path() / "s.sqlite3").string()), limiter_(1000, 1000) {
    config_.from = "forms@example.net";
    config_.allow_addresses = {"owner@example.org"};
    config_.allow_domains = {"example.com"};
    config_.aliases["sales"] = "sales@example.com";
    config_.limits.max_body = 4096;
    config_.limits.max_fields = 20;
    config_.limits.max_name_length = 64;
    config_.limits.max_value_length = 1024;
  }

  Handler MakeHandler(RateLimiter& limiter) {
    return Handler(
        config_, store_, PolicyFromConfig(config_), limiter,
        [this] { ++queued_; }, [this] { return now_ms_; });
  }

  static Request Post(std::string body) {
    Request request;
    request.method = "POST";
    request.content_type = "application/x-www-form-urlencoded";
    request.content_length = body.size();
    request.body = std::move(body);
    request.client = "192.0.2.10";
    request.referer = "http://example.org/contact.html";
    request.accept = "text/html";
    return request;
  }

  std::vector<store::SubmissionRecord> Stored() { return store_.List({}); }

  static std::string Header(const Response& response, const std::string& name) {
    for (const auto& [key, value] : response.headers) {
      if (key == name) return value;
    }
    return "";
  }

  TempDir dir_;
  Config config_;
  FailingStore store_;
  TokenBucketLimiter limiter_;
  int64_t now_ms_ = 1700000000'000;
  int queued_ = 0;
};

const std::string kForm =
    "qln_EmailTo=owner%40example.org&qln_Subject=Contact&qln_SendMode=1"
    "&qln_OKMessage=Thanks&qln_SortOrder=Name%2CEmail%2CComments"
    "&qln_FormIndex=1&qln_Website=";

TEST_F(HandlerTest, HostilePosts) {
  Handler handler = MakeHandler(limiter_);
  struct Row {
    std::string name;
    Request request;
    int status;
    std::optional<Status> stored = {};  // nothing: no row kept
    std::string recipient = {};         // of the stored row
  };
  auto with = [](std::function<void(Request&)> change) {
    Request r = Post(kForm);
    change(r);
    return r;
  };
  auto typed = [&](std::string type) {
    return with([&](Request& r) { r.content_type = type; });
  };
  const std::string fields = "&Name=Jane&Email=jane%40example.org&Comments=hi";
  auto to = [&](std::string recipient) {
    return Post("qln_EmailTo=" + recipient + fields);
  };
  std::string many_fields = kForm;
  for (int i = 0; i < 20; ++i) many_fields += "&f" + std::to_string(i) + "=x";
  // The first qln_SortOrder counts: this one names more fields than allowed.
  std::string sort_bomb = "qln_SortOrder=";
  for (int i = 0; i < 30; ++i) sort_bomb += "n" + std::to_string(i) + "%2C";
  sort_bomb += "&" + kForm;
  Request undeclared = Post(kForm + "&Comments=" + std::string(4096, 'x'));
  undeclared.content_length.reset();
  const std::vector<Row> rows = {
      {"accepted", Post(kForm + fields), 200, Status::kQueued,
       "owner@example.org"},
      {"GET", with([](Request& r) { r.method = "GET"; }), 405},
      {"multipart", typed("multipart/form-data; boundary=xyz"), 415},
      {"text/plain", typed("text/plain"), 415},
      {"Latin-1",
       typed("application/x-www-form-urlencoded; charset=iso-8859-1"), 415},
      {"declared too long", with([](Request& r) { r.content_length = 4097; }),
       413},
      {"too long, undeclared", undeclared, 413},
      {"too many fields", Post(many_fields), 413},
      {"sort order naming too many", Post(sort_bomb), 413},
      {"long value", Post(kForm + "&C=" + std::string(1025, 'x')), 413},
      {"invalid UTF-8", Post(kForm + "&Name=%C3%28"), 400},
      {"bad escape", Post(kForm + "&Name=%G0"), 400},
      {"NUL", Post(kForm + "&Name=a%00b"), 400},
      {"no qln_EmailTo", Post("Name=Jane&Comments=hi"), 400},
      {"honeypot", Post(kForm + "http%3A%2F%2Fspam.test" + fields), 200,
       Status::kSpam},
      {"changed recipient", to("victim%40elsewhere.test"), 403,
       Status::kRefused},
      {"header injection in recipient",
       to("owner%40example.org%0D%0ABcc%3A%20v%40evil.test"), 403,
       Status::kRefused},
      {"two recipients", to("owner%40example.org%2C%20v%40evil.test"), 403,
       Status::kRefused},
      {"subdomain", to("x%40a.example.com"), 403, Status::kRefused},
      {"no recipient", to(""), 403, Status::kRefused},
      {"alias", to("sales"), 200, Status::kQueued, "sales@example.com"},
      {"allowed domain", to("Anyone%40EXAMPLE.com"), 200, Status::kQueued,
       "Anyone@EXAMPLE.com"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    const size_t before = Stored().size();
    const int queued_before = queued_;
    const Response response = handler.Handle(row.request);
    EXPECT_EQ(response.status, row.status) << response.body;
    EXPECT_EQ(Header(response, "Cache-Control"), "no-store");
    EXPECT_EQ(response.content_type, "text/html; charset=utf-8");
    if (row.status == 405) {
      EXPECT_EQ(Header(response, "Allow"), "POST");
    }
    const std::vector<store::SubmissionRecord> after = Stored();
    if (!row.stored) {
      EXPECT_EQ(after.size(), before);
      continue;
    }
    ASSERT_EQ(after.size(), before + 1);
    const store::SubmissionRecord record = *store_.Get(after.back().id);
    EXPECT_EQ(record.status, *row.stored);
    EXPECT_EQ(record.recipient, row.recipient);
    EXPECT_EQ(record.client, "192.0.2.10");
    EXPECT_EQ(record.page, "http://example.org/contact.html");
    EXPECT_EQ(record.received_at, 1700000000);
    EXPECT_EQ(record.key.size(), 32u);
    EXPECT_EQ(record.requested_to.find_first_of("\r\n"), std::string::npos);
    const bool mailed = *row.stored == Status::kQueued;
    EXPECT_EQ(queued_, queued_before + (mailed ? 1 : 0));
    EXPECT_EQ(record.message.empty(), !mailed);
    EXPECT_EQ(record.message_id.empty(), !mailed);
    if (*row.stored == Status::kRefused) {
      EXPECT_NE(response.body.find("its recipient is not allowed"),
                std::string::npos);
      EXPECT_FALSE(record.detail.empty());
    }
    if (*row.stored == Status::kSpam) {
      // Answered as an accepted post is.
      EXPECT_NE(response.body.find("<h1>Thank you</h1>"), std::string::npos);
      EXPECT_NE(response.body.find(">Thanks</p>"), std::string::npos);
    }
    if (mailed) {
      EXPECT_EQ(record.next_attempt_at, 1700000000);
      EXPECT_EQ(record.message_id, "<" + record.key + "@example.net>");
      const ParsedMail mail = ParseMail(record.message);
      EXPECT_EQ(mail.to, row.recipient);
      EXPECT_EQ(mail.from, "forms@example.net");
      EXPECT_EQ(mail.reply_to, "jane@example.org");
      EXPECT_EQ(mail.message_id, record.message_id);
      EXPECT_EQ(mail.body,
                "Name: Jane\n\nEmail: jane@example.org\n\nComments: hi\n");
    }
  }
}

TEST_F(HandlerTest, LineBreaksAndMarkupStayText) {
  Handler handler = MakeHandler(limiter_);
  const std::string evil_subject = "Hi\r\nBcc: victim@evil.test\r\n\r\nbody";
  std::string body =
      "qln_EmailTo=owner%40example.org&qln_SendMode=2&qln_Subject=" +
      Encode(evil_subject) +
      "&qln_OKMessage=" + Encode(kMarkup[0] + "\n" + kMarkup[2]) +
      "&qln_SortOrder=" + Encode("Name,Email,Note");
  body += "&Name=" + Encode(kMarkup[1]);
  body += "&Email=" + Encode("jane@example.org\r\nBcc: victim@evil.test");
  body += "&Note=" + Encode("one\r\nTo: victim@evil.test\r\n.\r\nthree");
  Request request = Post(body);
  request.referer = "http://example.org/p\r\nBcc: v@evil.test";
  const Response response = handler.Handle(request);
  ASSERT_EQ(response.status, 200) << response.body;
  EXPECT_EQ(response.body.find("<script"), std::string::npos);
  EXPECT_EQ(response.body.find("<h1>fake"), std::string::npos);
  EXPECT_NE(response.body.find("&lt;script&gt;"), std::string::npos);
  EXPECT_EQ(response.body.find("href"), std::string::npos);  // unsafe referer

  const store::SubmissionRecord record = *store_.Get(Stored().back().id);
  EXPECT_EQ(record.subject, "Hi  Bcc: victim@evil.test    body");
  EXPECT_EQ(record.page, "http://example.org/pBcc: v@evil.test");
  const ParsedMail mail = ParseMail(record.message);
  EXPECT_EQ(mail.subject, record.subject);
  EXPECT_EQ(mail.to, "owner@example.org");
  EXPECT_EQ(mail.reply_to, "");  // the address field held more than one
  EXPECT_EQ(mail.to_headers, 1);
  EXPECT_EQ(mail.attachment_name, "submission.csv");
  EXPECT_EQ(mail.content_type, "multipart/mixed");
  // The visitor's markup is in the text/plain part as typed.
  EXPECT_NE(mail.body.find(R"("""><img src=x onerror=alert(1)>")"),
            std::string::npos)
      << mail.body;
  EXPECT_NE(mail.body.find("\"one\nTo: victim@evil.test\n.\nthree\""),
            std::string::npos)
      << mail.body;
}

TEST_F(HandlerTest, AFloodFromOneAddressIsRefused) {
  TokenBucketLimiter limiter(20, 3);
  Handler handler = MakeHandler(limiter);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(handler.Handle(Post(kForm)).status, 200);
  }
  const Response refused = handler.Handle(Post(kForm));
  EXPECT_EQ(refused.status, 429);
  EXPECT_EQ(Header(refused, "Retry-After"), "60");
  EXPECT_EQ(Stored().size(), 3u);
  // The other checks come first: a refused method costs no token.
  Request other = Post(kForm);
  other.client = "192.0.2.99";
  other.method = "PUT";
  EXPECT_EQ(handler.Handle(other).status, 405);
  other.method = "POST";
  for (int i = 0; i < 3; ++i) EXPECT_EQ(handler.Handle(other).status, 200);
  now_ms_ += 60'000;
  EXPECT_EQ(handler.Handle(Post(kForm)).status, 200);
}

TEST_F(HandlerTest, JsonAnswersAndStoreFailures) {
  TokenBucketLimiter limiter(20, 1);
  Handler handler = MakeHandler(limiter);
  auto json = [&](Request request) {
    request.accept = "application/json";
    const Response response = handler.Handle(request);
    EXPECT_EQ(response.content_type, "application/json");
    EXPECT_EQ(Header(response, "Cache-Control"), "no-store");
    return std::pair(response.status, Json::parse(response.body));
  };
  auto [status, answer] = json(Post(kForm + "&qln_OKMessage=ignored"));
  EXPECT_EQ(status, 200);
  EXPECT_EQ(answer["ok"], true);
  EXPECT_EQ(answer["id"], Stored().back().id);
  EXPECT_EQ(answer["message"], "Thanks");
  std::tie(status, answer) = json(Post(kForm));
  EXPECT_EQ(status, 429);
  EXPECT_EQ(answer["ok"], false);

  Request fresh = Post("qln_EmailTo=owner%40example.org&qln_OKMessage=");
  fresh.client = "192.0.2.20";
  store_.fail = true;
  std::tie(status, answer) = json(fresh);
  EXPECT_EQ(status, 503);
  EXPECT_EQ(answer["ok"], false);
  EXPECT_EQ(queued_, 1);
  store_.fail = false;
  fresh.client = "192.0.2.21";
  const Response html = handler.Handle(fresh);
  EXPECT_EQ(html.status, 200);
  EXPECT_NE(html.body.find("Thank you. Your form has been sent."),
            std::string::npos);
  EXPECT_NE(html.body.find("href=\"http://example.org/contact.html\""),
            std::string::npos);
  // Without a configured sender the mail still has a From and an ID.
  config_.from.clear();
  fresh.client = "192.0.2.22";
  EXPECT_EQ(handler.Handle(fresh).status, 200);
  const store::SubmissionRecord record = *store_.Get(Stored().back().id);
  EXPECT_EQ(record.mail_from, "formwiz@localhost");
  EXPECT_EQ(ParseMail(record.message).from, "formwiz@localhost");
  EXPECT_TRUE(record.message_id.ends_with("@formwiz.invalid>"));
}

// The fuzz target's seeds and the inputs that once failed it pass its
// checks in every build of the tests, sanitizers or not.
TEST(DeliveryFuzzTest, SeedsAndRegressionsPassTheTargetsChecks) {
  int inputs = 0;
  for (const char* folder :
       {"fuzz/delivery_seeds", "fuzz/regressions/delivery_fuzz"}) {
    const fs::path path = fs::path(FORMWIZ_SOURCE_DIR) / folder;
    if (!fs::is_directory(path)) continue;
    for (const auto& entry : fs::directory_iterator(path)) {
      std::ifstream in(entry.path(), std::ios::binary);
      const std::string input((std::istreambuf_iterator<char>(in)),
                              std::istreambuf_iterator<char>());
      EXPECT_EQ(fuzz::CheckPost(input), "") << entry.path();
      ++inputs;
    }
  }
  EXPECT_GE(inputs, 3);
}

}  // namespace
}  // namespace formwiz::delivery
