#include "kernel/containers/xml.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <string>

#include "kernel/memory.h"
#include "platform/file.h"
#include "platform/text.h"
#include "tests/kernel/fault_injection.h"
#include "tests/support/test_folder.h"

namespace {

// The tree in one line: name[attr=value]{children}, "/" after a closed
// element, "text" for character data, !comment, #CDATA, ?instruction.
std::string Dump(const tagZQXML_CONTENT* c) {
  if (c->type != XML_CONTENT_ELEMENT) {
    const char* mark = c->type == XML_CONTENT_CHARDATA ? "\"" : c->type == XML_CONTENT_COMMENT ? "!"
                       : c->type == XML_CONTENT_CDATA  ? "#"
                                                       : "?";
    return mark + ZqUtf16ToUtf8(c->text) + (c->type == XML_CONTENT_CHARDATA ? "\"" : "");
  }
  const tagZQXML_ELEMENT& e = c->element;
  std::string s = ZqUtf16ToUtf8(e.name) + (e.closed ? "/" : "");
  for (INT i = 0; i < e.attributes->count; ++i) {
    auto* a = static_cast<tagZQXML_ATTRIBUTE*>(ZqList_Slot(e.attributes, i));
    s += "[" + ZqUtf16ToUtf8(a->name) + "=" + ZqUtf16ToUtf8(a->value) + "]";
  }
  if (e.children->count == 0) return s;
  s += "{";
  for (INT i = 0; i < e.children->count; ++i)
    s += (i ? " " : "") + Dump(static_cast<tagZQXML_CONTENT*>(ZqList_Slot(e.children, i)));
  return s + "}";
}

struct Parsed {
  HRESULT status;
  std::string root;  // "-" when there is none
};
Parsed Parse(CZqXML_Document& doc, const std::string& bytes) {
  EXPECT_EQ(doc.OpenMemory(bytes.data(), bytes.size()), S_OK);
  const HRESULT hr = doc.ParseFile();
  return {hr, doc.RootContent() ? Dump(doc.RootContent()) : "-"};
}

TEST(XmlDocument, ParsesTheFamilysDocumentsWithTheirGaps) {
  struct Case { const char* what; std::string text; HRESULT status; const char* root; };
  const Case cases[] = {
      {"elements, attributes, text", R"(<a b="1" c="&lt;">x<d/></a>)", S_OK, R"(a[b=1][c=&lt;]{"x" d/})"},
      {"a second space joins the next name", R"(<a x="1"  y="2"></a>)", S_OK, "a[x=1][ y=2]"},
      {"only a double quote opens a value", "<a b=''/>", E_FAIL, "-"},
      {"a tag that fails frees only itself", "<r><a b=''/><c/></r>", S_OK, "r{c/}"},
      {"attributes and a slash: not closed", R"(<r><a x="1"/><b/></r>)", S_OK, "r{a[x=1] b/}"},
      {"a comment runs to the > after --", "<a><!-- x > y --></a>", S_OK, "a{!-- x > y --}"},
      {"CDATA keeps its word and ends at >", "<a><![CDATA[p>q]]></a>", S_OK, R"(a{#[CDATA[p "q]]>"})"},
      {"an instruction runs to the next <", "<a><?pi d?></a>", S_OK, "a{??pi d?>}"},
      {"skipped characters are lost from text", "<a> (x)</a>", S_OK, "a{\"x)\"}"},
      {"the last top-level element is the root", "<a/><b/>", S_OK, "b/"},
      {"a wrong end tag", "<a></b>", E_FAIL, "a"},
      {"data ending in a comment", "<a><!-- x", E_FAIL, "a{!-- x}"},
      {"data ending in a declaration", "<a><!DOCTYPE", E_FAIL, "a"},
      {"data ending in a tag", "<a", E_FAIL, "-"},
      {"a top-level <? that is no declaration", "<r/><?>", S_FALSE, "r/"},
      {"a declaration needs = right after the name", R"(<r/><?xml version ="?>)", E_FAIL, "r/"},
      {"bytes are windows-1252", "<a>caf\xE9 \x80</a>", S_OK, "a{\"caf\xC3\xA9 \xE2\x82\xAC\"}"},
      {"FE FF is no byte-order mark", std::string("\xFE\xFF\0<\0a\0>", 8), S_OK, "-"},
  };
  for (const Case& c : cases) {
    CZqXML_Document doc;
    const Parsed p = Parse(doc, c.text);
    EXPECT_EQ(p.status, c.status) << c.what;
    EXPECT_EQ(p.root, c.root) << c.what;
  }
}

TEST(XmlDocument, DeclarationValuesAreKeptAndCutToTheirRoom) {
  CZqXML_Document doc;
  const Parsed p = Parse(doc, R"(<?XML Version="1.0.0.0.0.0" foo="x" encoding="windows-1252"?><r/>)");
  EXPECT_EQ(p.status, S_OK);
  EXPECT_EQ(std::u16string(doc.Version()), u"1.0.0.0.0") << "10 characters with the terminator";
  EXPECT_EQ(std::u16string(doc.EncodingName()), u"windows-1252");
  EXPECT_EQ(std::u16string(doc.Standalone()), u"");
  EXPECT_EQ(p.root, "r/");
}

TEST(XmlDocument, Utf16WithItsMarkReadsWideText) {
  const std::u16string text = u"\xFEFF<a n=\"\x4E2D\">\x00E9t\x00E9</a>";
  CZqXML_Document doc;
  ASSERT_EQ(doc.OpenMemory(text.data(), text.size() * 2 + 1), S_OK) << "an odd last byte is no character";
  EXPECT_EQ(doc.ParseFile(), S_OK);
  ASSERT_NE(doc.RootContent(), nullptr);
  EXPECT_EQ(Dump(doc.RootContent()), "a[n=\xE4\xB8\xAD]{\"\xC3\xA9t\xC3\xA9\"}");
}

TEST(XmlDocument, LookUpsFollowTheirContracts) {
  CZqXML_Document doc;
  Parse(doc, R"(<r><n>Tom &amp; Jerry &#65;</n><e/><!--c--><z>zz</z><m k="a&gt;b"/></r>)");
  tagZQXML_CONTENT* root = doc.RootContent();
  ASSERT_NE(root, nullptr);
  tagZQXML_CONTENT* child = nullptr;
  WCHAR buffer[64];
  ASSERT_EQ(doc.GetChildContentString(root, u"n", buffer, 64), S_OK);
  EXPECT_EQ(std::u16string(buffer), u"Tom & Jerry &#65;");
  INT length = 0;
  ASSERT_EQ(doc.FindChild(root, u"n", &child), S_OK);
  EXPECT_EQ(doc.GetContentStringReqLen(&child->element, &length), S_OK);
  EXPECT_EQ(length, 22);
  ASSERT_EQ(doc.GetContentString(&child->element, buffer, 10), S_OK);
  EXPECT_EQ(std::u16string(buffer), u"Tom &") << "cut, then the entity resolved";
  EXPECT_EQ(doc.GetContentStringReqLen(nullptr, &length), E_INVALIDARG);

  ASSERT_EQ(doc.FindChild(root, u"e", &child), S_OK);
  EXPECT_EQ(doc.GetContentString(&child->element, buffer, 64), ZQ_E_NOT_FOUND) << "a closed element has no text";
  EXPECT_EQ(doc.FindChild(root, u"z", &child), S_OK) << "the walk stops at the comment";
  EXPECT_EQ(child, nullptr);
  EXPECT_EQ(doc.GetChildContentString(root, u"z", buffer, 64), ZQ_E_NOT_FOUND);

  tagZQXML_CONTENT* m = static_cast<tagZQXML_CONTENT*>(ZqList_Slot(root->element.children, 4));
  EXPECT_EQ(doc.GetAttributeString(&m->element, u"k", buffer, 64), S_OK);
  EXPECT_EQ(std::u16string(buffer), u"a>b");
  tagZQXML_ATTRIBUTE* a = nullptr;
  EXPECT_EQ(doc.GetAttribute(&m->element, u"K", &a), ZQ_E_NOT_FOUND);

  // Searches: the top level holds the root alone; handles are checked.
  HANDLE top = doc.FindContentFirst(nullptr, &child);
  ASSERT_NE(top, INVALID_HANDLE_VALUE);
  EXPECT_EQ(child, root);
  EXPECT_EQ(doc.FindContentNext(top, &child), ZQ_E_NOT_FOUND);
  HANDLE s = doc.FindContentFirst(&root->element, &child);
  int seen = 1;
  while (doc.FindContentNext(s, &child) == S_OK) ++seen;
  EXPECT_EQ(seen, 5);
  EXPECT_EQ(doc.FindContentClose(s), S_OK);
  EXPECT_EQ(doc.FindContentNext(s, &child), E_HANDLE);
  EXPECT_EQ(doc.FindContentClose(s), E_HANDLE);
  EXPECT_EQ(doc.FindContentClose(nullptr), E_HANDLE);
  EXPECT_EQ(doc.FindContentFirst(&m->element, &child), INVALID_HANDLE_VALUE) << "no children";
  // `top` is left open: it goes with the document.
}

TEST(XmlDocument, FilesOpenOnceAndAnswerTheirStatuses) {
  zqtest::TestFolder folder("xml");
  auto write = [&](const char* name, const std::string& bytes) {
    const std::u16string path = ZqUtf8ToUtf16((folder.path() / name).string());
    HANDLE h = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    DWORD n = 0;
    if (!bytes.empty()) WriteFile(h, bytes.data(), static_cast<DWORD>(bytes.size()), &n, nullptr);
    CloseHandle(h);
    return path;
  };
  CZqXML_Document doc;
  EXPECT_EQ(doc.OpenFile(write("empty.xml", "").c_str()), ZQ_E_BAD_FILE);
  EXPECT_EQ(doc.OpenFile(ZqUtf8ToUtf16((folder.path() / "none.xml").string()).c_str()), ZQ_E_FILE_EXISTS);
  const std::u16string good = write("good.xml", "<r><v>1</v></r>");
  ASSERT_EQ(doc.OpenFile(good.c_str()), S_OK);
  EXPECT_EQ(doc.OpenFile(good.c_str()), E_UNEXPECTED);
  EXPECT_EQ(doc.ParseFile(), S_OK);
  EXPECT_EQ(std::u16string(doc.FilePath()), good);
  EXPECT_EQ(Dump(doc.RootContent()), R"(r{v{"1"}})");
  EXPECT_EQ(doc.CloseFile(), S_OK);
  EXPECT_EQ(doc.ParseFile(), E_UNEXPECTED);
  EXPECT_EQ(doc.OpenFile(good.c_str()), S_OK) << "closed documents open again";
}

TEST(XmlDocument, DeepTreesAndFailedAllocationsLeaveNothingBehind) {
  std::string deep;
  for (int i = 0; i < 50000; ++i) deep += "<a>";
  {
    CZqXML_Document doc;
    ASSERT_EQ(doc.OpenMemory(deep.data(), deep.size()), S_OK);
    EXPECT_EQ(doc.ParseFile(), S_OK);
  }  // freed without recursion

  const std::string text = R"(<?xml version="1"?><r a="1"><b>t</b><!-- c > x --><![CDATA[d]]><?p?><e/></r>)";
  const LONG_PTR live = ZqMemory_GetLiveBlocks();
  auto parse = [&](int&) {
    CZqXML_Document doc;
    return FAILED(doc.OpenMemory(text.data(), text.size())) ? E_OUTOFMEMORY : doc.ParseFile();
  };
  auto check = [&](int&, const ZqFaultRun& run) {
    EXPECT_TRUE(run.failed || run.status == S_OK);
    EXPECT_EQ(ZqMemory_GetLiveBlocks(), live) << "allocation " << run.n;
  };
  LONG points = ZqForEachAllocFailure([] { return 0; }, parse, check);
  EXPECT_GT(points, 20);
  for (LONG n = 1; n < points; n += 7) {  // from the n-th on, every allocation fails: the parse still ends
    ZqScopedAllocFailure fail(n, ZQMEMFAIL_PERSISTENT | ZQMEMFAIL_CALLING_THREAD);
    CZqXML_Document doc;
    if (SUCCEEDED(doc.OpenMemory(text.data(), text.size()))) doc.ParseFile();
  }
  EXPECT_EQ(ZqMemory_GetLiveBlocks(), live);
}

TEST(XmlEscapes, TheThreeEntitiesAndNothingElse) {
  struct Case { std::u16string text; BOOL needs, has; std::u16string removed; };
  const Case cases[] = {
      {u"Tom &amp; Jerry", FALSE, TRUE, u"Tom & Jerry"},
      {u"a &lt;&gt; b", FALSE, TRUE, u"a <> b"},
      {u"&#65; &quot;", TRUE, FALSE, u"&#65; &quot;"},
      {u"x < y", TRUE, FALSE, u"x < y"},
      {u"&amp", TRUE, FALSE, u"&amp"},
      {u"&&lt;", TRUE, TRUE, u"&<"},
  };
  for (const Case& c : cases) {
    std::u16string copy = c.text;
    EXPECT_EQ(ZqXML_DoesStringNeedEscapes(c.text.c_str()), c.needs) << ZqUtf16ToUtf8(c.text);
    EXPECT_EQ(ZqXML_DoesStringHaveEscapes(c.text.c_str()), c.has) << ZqUtf16ToUtf8(c.text);
    EXPECT_EQ(ZqXML_RemoveEscapes(copy.data()), S_OK);
    EXPECT_EQ(std::u16string(copy.c_str()), c.removed);
  }

  WCHAR out[16];
  std::fill(std::begin(out), std::end(out), u'.');
  ASSERT_EQ(ZqXML_AddEscapes(out, 16, u"a<b<c"), S_OK);
  EXPECT_EQ(std::u16string(out, 12), std::u16string(u"a&lt;b....c\0", 12))
      << "only the first entity is written; the room of the second stays as it was";
  ASSERT_EQ(ZqXML_AddEscapes(out, 4, u"abcdef"), S_OK);
  EXPECT_EQ(std::u16string(out), u"abc") << "never past the room";
}

}  // namespace
