// The collecting sink with switches that make it refuse or fail: refuse
// every connection type or only QueryAccept, fail Receive or EndOfStream at
// chosen calls.  Its allocator's own fault switches are CMemAllocator's.
#pragma once

#include <atomic>
#include <new>

#include "mediafw/sink.h"

namespace zqtest {

class CZqFailingSink final : public CZqCollectSink {
 public:
  // A new sink with one reference.
  static HRESULT Create(CZqFailingSink** sink) {
    *sink = new (std::nothrow) CZqFailingSink();
    if (*sink == nullptr) return E_OUTOFMEMORY;
    (*sink)->NonDelegatingAddRef();
    return S_OK;
  }

  // Every connection type is refused (VFW_E_TYPE_NOT_ACCEPTED).
  void RefuseConnection(bool refuse) { m_refuseConnection = refuse; }
  // QueryAccept answers S_FALSE (connection is not affected).
  void RefuseQueryAccept(bool refuse) { m_refuseQueryAccept = refuse; }
  // Receive calls nth .. nth+count-1 answer `status` without collecting.
  void FailReceive(LONG nth, LONG count = 1, HRESULT status = E_FAIL) { m_receive = {nth, count, status, 0}; }
  void FailEndOfStream(LONG nth, LONG count = 1, HRESULT status = E_FAIL) { m_eos = {nth, count, status, 0}; }

 protected:
  HRESULT CheckConnectionType(const CMediaType*) override {
    return m_refuseConnection ? VFW_E_TYPE_NOT_ACCEPTED : S_OK;
  }
  HRESULT CheckQueryAccept() override { return m_refuseQueryAccept ? S_FALSE : S_OK; }
  HRESULT CheckReceive() override { return m_receive.Next(); }
  HRESULT CheckEndOfStream() override { return m_eos.Next(); }

 private:
  std::atomic<bool> m_refuseConnection{false};
  std::atomic<bool> m_refuseQueryAccept{false};
  ZqFaultPlan m_receive;  // read and written under the sink's data lock
  ZqFaultPlan m_eos;
};

}  // namespace zqtest
