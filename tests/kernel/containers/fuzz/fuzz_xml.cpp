// libFuzzer target: any bytes as an XML document in memory, parsed and then
// looked through with every look-up the reader offers.
//
// What must hold for every input: no fault and no read outside the input
// (ASan reports one), an end to the parse (libFuzzer's -timeout), no
// allocation left behind, and only the answers a damaged document may give.
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "kernel/containers/xml.h"
#include "kernel/memory.h"

namespace {

void Check(bool ok) {
  if (!ok) abort();
}

// Every element below the root, without recursion (inputs nest deeply).
void Visit(CZqXML_Document& doc) {
  std::vector<tagZQXML_CONTENT*> todo;
  if (doc.RootContent()) todo.push_back(doc.RootContent());
  WCHAR buffer[32];
  while (!todo.empty()) {
    tagZQXML_CONTENT* c = todo.back();
    todo.pop_back();
    if (c->type != XML_CONTENT_ELEMENT) {
      Check(c->text != nullptr);
      ZqXML_DoesStringNeedEscapes(c->text);
      ZqXML_AddEscapes(buffer, 32, c->text);
      continue;
    }
    tagZQXML_ELEMENT* e = &c->element;
    INT length = 0;
    const HRESULT text = doc.GetContentStringReqLen(e, &length);
    Check(text == S_OK || text == ZQ_E_NOT_FOUND);
    if (text == S_OK) Check(doc.GetContentString(e, buffer, 32) == S_OK);
    tagZQXML_CONTENT* child = nullptr;
    const HRESULT found = doc.FindChild(c, u"a", &child);
    Check(found == S_OK || found == ZQ_E_NOT_FOUND);
    Check(child == nullptr || child->type == XML_CONTENT_ELEMENT);
    const HRESULT attribute = doc.GetAttributeString(e, u"b", buffer, 32);
    Check(attribute == S_OK || attribute == ZQ_E_NOT_FOUND);
    HANDLE search = doc.FindContentFirst(e, &child);
    if (search == INVALID_HANDLE_VALUE) continue;
    do {
      Check(child != nullptr && child->parent == e);
      todo.push_back(child);
    } while (doc.FindContentNext(search, &child) == S_OK);
    Check(doc.FindContentClose(search) == S_OK);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const LONG_PTR live = ZqMemory_GetLiveBlocks();
  {
    CZqXML_Document doc;
    Check(doc.OpenMemory(data, size) == S_OK);
    const HRESULT hr = doc.ParseFile();
    Check(hr == S_OK || hr == S_FALSE || hr == E_FAIL);
    Visit(doc);
  }
  Check(ZqMemory_GetLiveBlocks() == live);
  return 0;
}
