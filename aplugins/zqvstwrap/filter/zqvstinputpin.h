// The filter's single input pin.  It carries audio only; there are no side
// chain, instrument or event pins, whatever the plug-in is.
//
// Receive replaces the framework's altogether: it holds the filter's receive
// lock for the whole of the filter's Receive, so a sample's processing, its
// deliveries and an end of stream never overlap.  Sample properties and a
// media type attached to a sample are not looked at.
//
// CheckMediaType lets an input type that differs from the present
// connection through when the downstream filter accepts the output that
// would come of it (the output is then reconnected once upstream has
// chosen the input's allocator).
#pragma once

#include "mediafw/transform.h"

class CZqVstWrapTransform;

class CZqPlugInInputPin final : public CTransformInputPin {
 public:
  CZqPlugInInputPin(CZqVstWrapTransform* filter, HRESULT* phr);

  HRESULT CheckMediaType(const CMediaType* mt) override;
  // "In".
  HRESULT STDMETHODCALLTYPE QueryId(LPWSTR* id) override;
  HRESULT STDMETHODCALLTYPE Receive(IMediaSample* sample) override;
  // Upstream's last step of a connection: an output that no longer fits
  // the new input type is reconnected now, with the input's buffers known.
  HRESULT STDMETHODCALLTYPE NotifyAllocator(IMemAllocator* allocator, BOOL readOnly) override;

 private:
  CZqVstWrapTransform* m_owner;  // not counted
};
