// The transform base through a fake subclass, with the memory source, the
// collecting sink and the graph around it.
#include <gtest/gtest.h>

#include <cctype>
#include <cstring>
#include <functional>
#include <string>

#include "kernel/com/taskmem.h"
#include "test_filters.h"

namespace {

using zqtest::Chain;
using zqtest::Pcm16;

constexpr DWORD kWait = 20000;  // a bound against hangs, not a measurement

TEST(MediaFwConnect, ChainConnectsInOrderAndCarriesTheSourceType) {
  Chain c;
  WAVEFORMATEX fmt = Pcm16(2, 44100);
  c.Feed(fmt, 100, 10, false);
  // Without a connected input the output has no type to offer, and a type
  // given outright is refused by the output itself.
  EXPECT_EQ(c.ConnectOutput(), VFW_E_NO_ACCEPTABLE_TYPES);
  CMediaType given;
  ASSERT_EQ(c.source->OutputPin()->GetMediaType(0, &given), S_OK);
  EXPECT_EQ(c.graph->ConnectDirect(c.fake->Output(), c.sink->InputPin(), &given), E_UNEXPECTED);
  ASSERT_EQ(c.ConnectInput(), S_OK);
  ASSERT_EQ(c.ConnectOutput(), S_OK);
  EXPECT_EQ(c.fake->setTypes[PINDIR_INPUT], 1);
  EXPECT_EQ(c.fake->setTypes[PINDIR_OUTPUT], 1);
  CMediaType sinkType = c.sink->ConnectedType();
  ASSERT_EQ(sinkType.FormatLength(), 18u);
  EXPECT_EQ(std::memcmp(sinkType.Format(), &fmt, 18), 0);

  AM_MEDIA_TYPE mt{};
  ASSERT_EQ(c.fake->Output()->ConnectionMediaType(&mt), S_OK);
  EXPECT_TRUE(CMediaType(mt) == sinkType);
  FreeMediaType(mt);
  IPin* peer = nullptr;
  ASSERT_EQ(c.fake->Input()->ConnectedTo(&peer), S_OK);
  EXPECT_EQ(peer, static_cast<IPin*>(c.source->OutputPin()));
  peer->Release();

  EXPECT_EQ(c.ConnectInput(), VFW_E_ALREADY_CONNECTED);
  EXPECT_EQ(c.graph->ConnectDirect(c.fake->Input(), c.sink->InputPin(), nullptr), VFW_E_INVALID_DIRECTION);
  EXPECT_EQ(c.graph->Disconnect(c.fake->Output()), S_OK);
  EXPECT_EQ(c.graph->Disconnect(c.fake->Output()), S_FALSE);
  EXPECT_EQ(c.fake->Output()->ConnectedTo(&peer), VFW_E_NOT_CONNECTED);
  EXPECT_EQ(peer, nullptr);
}

TEST(MediaFwConnect, RefusalsComeBackAsTypeStatuses) {
  Chain c;
  c.Feed(Pcm16(2, 44100), 100, 10, false);
  c.fake->checkInput = [](const CMediaType*) { return S_FALSE; };
  EXPECT_EQ(c.ConnectInput(), VFW_E_NO_ACCEPTABLE_TYPES);
  CMediaType offered;
  ASSERT_EQ(c.source->OutputPin()->GetMediaType(0, &offered), S_OK);
  EXPECT_EQ(c.graph->ConnectDirect(c.source->OutputPin(), c.fake->Input(), &offered), VFW_E_TYPE_NOT_ACCEPTED);
  EXPECT_FALSE(c.fake->Input()->IsConnected());
  EXPECT_FALSE(c.source->OutputPin()->IsConnected());

  c.fake->checkInput = [](const CMediaType*) { return S_OK; };
  ASSERT_EQ(c.ConnectInput(), S_OK);
  c.sink->RefuseConnection(true);
  EXPECT_EQ(c.ConnectOutput(), VFW_E_NO_ACCEPTABLE_TYPES);
  EXPECT_EQ(c.fake->Output()->Allocator(), nullptr) << "a failed attempt keeps no allocator";
  c.sink->RefuseConnection(false);
  c.sink->SetTypeFilter([](const AM_MEDIA_TYPE& mt) { return reinterpret_cast<WAVEFORMATEX*>(mt.pbFormat)->nChannels == 1; });
  EXPECT_EQ(c.ConnectOutput(), VFW_E_NO_ACCEPTABLE_TYPES);
  c.sink->SetTypeFilter(nullptr);
  ASSERT_EQ(c.ConnectOutput(), S_OK);

  // The subclass may refuse at CompleteConnect; the connection is undone on
  // both sides.
  c.graph->Disconnect(c.fake->Output());
  c.graph->Disconnect(c.sink->InputPin());
  c.fake->completeConnect = [](PIN_DIRECTION dir, IPin*) { return dir == PINDIR_OUTPUT ? E_FAIL : S_OK; };
  EXPECT_EQ(c.ConnectOutput(), VFW_E_NO_ACCEPTABLE_TYPES);
  EXPECT_FALSE(c.sink->InputPin()->IsConnected());
  EXPECT_FALSE(c.fake->Output()->IsConnected());
}

TEST(MediaFwConnect, OutputTriesTheReceiversTypesFirst) {
  Chain c;
  c.Feed(Pcm16(2, 44100), 100, 10, false);
  ASSERT_EQ(c.ConnectInput(), S_OK);
  WAVEFORMATEX mono = Pcm16(1, 44100);
  CMediaType monoType;
  CreateAudioMediaType(&mono, &monoType, TRUE);
  c.sink->OfferTypes({monoType});
  // The fake offers stereo only, but takes mono when the sink proposes it.
  c.fake->checkTransform = [](const CMediaType*, const CMediaType*) { return S_OK; };
  ASSERT_EQ(c.ConnectOutput(), S_OK);
  EXPECT_EQ(reinterpret_cast<WAVEFORMATEX*>(c.sink->ConnectedType().Format())->nChannels, 1);

  IEnumMediaTypes* types = nullptr;
  ASSERT_EQ(c.fake->Output()->EnumMediaTypes(&types), S_OK);
  AM_MEDIA_TYPE* got[2] = {};
  ULONG fetched = 0;
  EXPECT_EQ(types->Next(2, got, &fetched), S_FALSE);
  ASSERT_EQ(fetched, 1u);
  EXPECT_EQ(reinterpret_cast<WAVEFORMATEX*>(got[0]->pbFormat)->nChannels, 2);
  DeleteMediaType(got[0]);
  types->Release();
}

TEST(MediaFwConnect, AllocatorNegotiationSeedsFromTheReceiverAndFallsBack) {
  Chain c;
  c.Feed(Pcm16(2, 44100), 100, 10, false);
  ASSERT_EQ(c.ConnectInput(), S_OK);
  c.sink->SetAllocatorRequirements(ALLOCATOR_PROPERTIES{3, 0, 16, 4});
  ASSERT_EQ(c.ConnectOutput(), S_OK);
  EXPECT_EQ(c.fake->lastRequest.cBuffers, 3);
  EXPECT_EQ(c.fake->lastRequest.cbAlign, 16);
  EXPECT_EQ(c.fake->lastRequest.cbPrefix, 4);
  EXPECT_EQ(c.fake->Output()->Allocator(), static_cast<IMemAllocator*>(c.sink->Allocator()));
  EXPECT_EQ(c.sink->InputPin()->Allocator(), static_cast<IMemAllocator*>(c.sink->Allocator()));
  // The source took the fake's input allocator (none was required there).
  EXPECT_NE(c.fake->Input()->Allocator(), nullptr);
  EXPECT_EQ(c.fake->Input()->Allocator(), c.source->OutputPin()->Allocator());

  // The receiver's allocator refuses the properties: our own is used and
  // the receiver is told about it.
  c.graph->Disconnect(c.fake->Output());
  c.graph->Disconnect(c.sink->InputPin());
  c.sink->Allocator()->FailSetProperties(1, 1, E_FAIL);
  ASSERT_EQ(c.ConnectOutput(), S_OK);
  IMemAllocator* chosen = c.fake->Output()->Allocator();
  EXPECT_NE(chosen, static_cast<IMemAllocator*>(c.sink->Allocator()));
  EXPECT_EQ(c.sink->InputPin()->Allocator(), chosen);

  // Both refuse: the connection fails with the subclass's status.
  c.graph->Disconnect(c.fake->Output());
  c.graph->Disconnect(c.sink->InputPin());
  c.fake->decideBufferSize = [](IMemAllocator*, ALLOCATOR_PROPERTIES*) { return E_OUTOFMEMORY; };
  EXPECT_EQ(c.ConnectOutput(), E_OUTOFMEMORY);
  EXPECT_FALSE(c.sink->InputPin()->IsConnected());
}

TEST(MediaFwState, StreamingStartsAndStopsOncePerRunAndOnlyWhenConnected) {
  Chain c;
  c.Feed(Pcm16(2, 44100), 100, 10, false);
  ASSERT_EQ(c.ConnectInput(), S_OK);
  // Output not connected: no streaming.
  EXPECT_EQ(c.fake->Pause(), S_OK);
  EXPECT_EQ(c.fake->Stop(), S_OK);
  EXPECT_EQ(c.fake->starts, 0);
  EXPECT_EQ(c.fake->stops, 0);

  ASSERT_EQ(c.ConnectOutput(), S_OK);
  ASSERT_EQ(c.graph->Pause(), S_OK);
  ASSERT_EQ(c.graph->Run(), S_OK);
  ASSERT_EQ(c.graph->Pause(), S_OK);
  ASSERT_EQ(c.graph->Run(), S_OK);
  FILTER_STATE st;
  c.fake->GetState(0, &st);
  EXPECT_EQ(st, State_Running);
  EXPECT_EQ(c.fake->starts, 1);
  EXPECT_EQ(c.fake->stops, 0);
  EXPECT_TRUE(static_cast<CMemAllocator*>(c.sink->Allocator())->IsCommitted());
  ASSERT_EQ(c.graph->Stop(), S_OK);
  ASSERT_EQ(c.graph->Stop(), S_OK);
  EXPECT_EQ(c.fake->stops, 1);
  EXPECT_FALSE(c.sink->Allocator()->IsCommitted());
  ASSERT_EQ(c.graph->Run(), S_OK);
  ASSERT_EQ(c.graph->Stop(), S_OK);
  EXPECT_EQ(c.fake->starts, 2);
  EXPECT_EQ(c.fake->stops, 2);

  // A failing start leaves the filter stopped, and connections can't change
  // while it is not.
  c.fake->startStreaming = [] { return E_OUTOFMEMORY; };
  EXPECT_EQ(c.fake->Pause(), E_OUTOFMEMORY);
  c.fake->GetState(0, &st);
  EXPECT_EQ(st, State_Stopped);
  c.fake->startStreaming = [] { return S_OK; };
  ASSERT_EQ(c.graph->Pause(), S_OK);
  EXPECT_EQ(c.fake->Output()->Disconnect(), VFW_E_NOT_STOPPED);
  EXPECT_EQ(c.graph->Reconnect(c.fake->Output()), VFW_E_NOT_STOPPED);
}

TEST(MediaFwState, PausingWithoutAnInputConnectionEndsTheStreamDownstream) {
  // A connected output needs a connected input, so the output is tested on
  // a filter whose input was disconnected afterwards.
  Chain c;
  c.Feed(Pcm16(1, 8000), 10, 10, false);
  ASSERT_EQ(c.ConnectAll(), S_OK);
  c.graph->Disconnect(c.source->OutputPin());
  c.graph->Disconnect(c.fake->Input());
  c.sink->Pause();
  EXPECT_EQ(c.fake->Pause(), S_OK);
  EXPECT_EQ(c.sink->EndOfStreamCount(), 1);
  EXPECT_EQ(c.fake->starts, 0);
  c.fake->Stop();
  c.sink->Stop();
}

TEST(MediaFwStreaming, SamplesReachTheSinkWithTimesAndFlags) {
  Chain c;
  WAVEFORMATEX fmt = Pcm16(2, 48000);
  c.Feed(fmt, 250, 100, false);
  c.source->SetStartTime(5000);
  c.source->SetStartMediaTime(7);
  c.source->SetDiscontinuities({0, 2});
  ASSERT_EQ(c.ConnectAll(), S_OK);
  EXPECT_EQ(c.source->PushNext(), VFW_E_WRONG_STATE);
  ASSERT_EQ(c.graph->Run(), S_OK);
  EXPECT_EQ(c.source->PushNext(), S_OK);
  EXPECT_EQ(c.source->PushNext(), S_OK);
  EXPECT_EQ(c.source->PushNext(), S_OK);
  EXPECT_EQ(c.source->PushNext(), S_FALSE);
  EXPECT_EQ(c.source->PushNext(), S_FALSE);

  std::vector<ZqReceivedSample> got = c.sink->Samples();
  ASSERT_EQ(got.size(), 3u);
  EXPECT_EQ(c.sink->AllBytes(), c.data);
  const LONGLONG frames[] = {100, 100, 50};
  LONGLONG first = 0;
  for (size_t i = 0; i < 3; ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(got[i].timeStatus, S_OK);
    EXPECT_EQ(got[i].start, 5000 + first * 10000000 / 48000);
    EXPECT_EQ(got[i].stop, 5000 + (first + frames[i]) * 10000000 / 48000);
    EXPECT_EQ(got[i].mediaTimeStatus, S_OK);
    EXPECT_EQ(got[i].mediaStart, 7 + first);
    EXPECT_EQ(got[i].mediaStop, 7 + first + frames[i]);
    EXPECT_EQ(got[i].discontinuity, i != 1);
    EXPECT_TRUE(got[i].syncPoint);
    EXPECT_EQ(got[i].data.size(), size_t(frames[i] * 4));
    first += frames[i];
  }
  std::vector<ZqSinkEvent> events = c.sink->Events();
  ASSERT_EQ(events.size(), 5u);
  EXPECT_EQ(events[0].kind, ZqSinkEventKind::NewSegment);
  EXPECT_EQ(events[0].segmentStart, 5000);
  EXPECT_EQ(events[0].segmentStop, 5000 + 250LL * 10000000 / 48000);
  EXPECT_EQ(events[0].rate, 1.0);
  EXPECT_EQ(events[1].kind, ZqSinkEventKind::Sample);
  EXPECT_EQ(events[4].kind, ZqSinkEventKind::EndOfStream);
  EXPECT_EQ(c.sink->EndOfStreamCount(), 1);
}

TEST(MediaFwStreaming, SkippedSampleMarksTheNextDeliveredOneAsADiscontinuity) {
  Chain c;
  c.Feed(Pcm16(1, 8000), 30, 10, false);
  c.source->SetDiscontinuities({});
  int calls = 0;
  auto copy = c.fake->transform;
  c.fake->transform = [&](IMediaSample* in, IMediaSample* out) { return ++calls == 1 ? S_FALSE : copy(in, out); };
  ASSERT_EQ(c.ConnectAll(), S_OK);
  ASSERT_EQ(c.graph->Run(), S_OK);
  while (c.source->PushNext() == S_OK) {
  }
  std::vector<ZqReceivedSample> got = c.sink->Samples();
  ASSERT_EQ(got.size(), 2u);
  EXPECT_TRUE(got[0].discontinuity);
  EXPECT_FALSE(got[1].discontinuity);
}

TEST(MediaFwStreaming, SilenceMarksTravelFromTheSourceAndReceiveIsRefusedWhenStopped) {
  CZqMemorySource* source = nullptr;
  CZqCollectSink* sink = nullptr;
  CZqMemorySource::Create(&source);
  CZqCollectSink::Create(&sink);
  WAVEFORMATEXTENSIBLE x{};
  x.Format = Pcm16(2, 44100);
  x.Format.wFormatTag = WAVE_FORMAT_EXTENSIBLE;
  x.Format.cbSize = ZQ_WFE_EXTRA_SIZE;
  x.Samples.wValidBitsPerSample = 16;
  x.dwChannelMask = 3;
  x.SubFormat = KSDATAFORMAT_SUBTYPE_PCM;
  source->SetFormat(&x.Format);
  std::vector<BYTE> data(4 * 30);
  source->SetData(data.data(), data.size());
  source->SetFramesPerSample(10);
  source->SetSilentSamples({1});
  source->SetThreaded(false);
  ASSERT_EQ(source->OutputPin()->Connect(sink->InputPin(), nullptr), S_OK);
  EXPECT_EQ(sink->ConnectedType().FormatLength(), 40u);
  EXPECT_EQ(sink->ConnectedType().subtype, ZQ_MEDIASUBTYPE_EXTENSIBLE);

  IMediaSample* s = nullptr;
  ASSERT_EQ(sink->Allocator()->Commit(), S_OK);
  ASSERT_EQ(sink->Allocator()->GetBuffer(&s, nullptr, nullptr, 0), S_OK);
  EXPECT_EQ(sink->InputPin()->Receive(s), VFW_E_WRONG_STATE);
  EXPECT_EQ(sink->InputPin()->Receive(nullptr), E_POINTER);
  s->Release();

  sink->Run(0);
  source->Run(0);
  while (source->PushNext() == S_OK) {
  }
  std::vector<ZqReceivedSample> got = sink->Samples();
  ASSERT_EQ(got.size(), 3u);
  for (size_t i = 0; i < 3; ++i) {
    EXPECT_TRUE(got[i].answersSilence);
    EXPECT_EQ(got[i].silent, i == 1) << i;
  }
  source->Stop();
  sink->Stop();
  source->OutputPin()->Disconnect();
  sink->InputPin()->Disconnect();
  source->Release();
  sink->Release();
}

TEST(MediaFwStreaming, FlushAndNewSegmentArePassedDownstream) {
  Chain c;
  c.Feed(Pcm16(2, 44100), 40, 10, false);
  c.source->SetSendNewSegment(false);
  ASSERT_EQ(c.ConnectAll(), S_OK);
  EXPECT_EQ(c.fake->Input()->NewSegment(100, 200, 2.0), S_OK);
  ASSERT_EQ(c.graph->Run(), S_OK);
  ASSERT_EQ(c.source->PushNext(), S_OK);
  ASSERT_EQ(c.fake->Input()->BeginFlush(), S_OK);
  EXPECT_EQ(c.source->PushNext(), S_FALSE) << "a flushing input refuses samples, which ends the source's stream";
  ASSERT_EQ(c.fake->Input()->EndFlush(), S_OK);

  std::vector<ZqSinkEvent> events = c.sink->Events();
  ASSERT_EQ(events.size(), 4u);
  EXPECT_EQ(events[0].kind, ZqSinkEventKind::NewSegment);
  EXPECT_EQ(events[0].segmentStart, 100);
  EXPECT_EQ(events[0].segmentStop, 200);
  EXPECT_EQ(events[0].rate, 2.0);
  EXPECT_EQ(events[1].kind, ZqSinkEventKind::Sample);
  EXPECT_EQ(events[2].kind, ZqSinkEventKind::BeginFlush);
  EXPECT_EQ(events[3].kind, ZqSinkEventKind::EndFlush);
  EXPECT_EQ(c.sink->EndOfStreamCount(), 0) << "end of stream during the flush is dropped";
  EXPECT_EQ(c.fake->Input()->CurrentStartTime(), 100);
}

TEST(MediaFwStreaming, ThreadedGraphPlaysToTheEndTwice) {
  Chain c;
  c.Feed(Pcm16(2, 44100), 4410, 441, true);
  ASSERT_EQ(c.ConnectAll(), S_OK);
  for (int run = 0; run < 2; ++run) {
    SCOPED_TRACE(run);
    c.sink->Clear();
    ASSERT_EQ(c.graph->Run(), S_OK);
    LONG event = 0;
    ASSERT_EQ(c.graph->WaitForCompletion(kWait, &event), S_OK);
    EXPECT_EQ(event, EC_COMPLETE);
    EXPECT_EQ(c.source->WaitUntilDone(kWait), S_OK);
    EXPECT_EQ(c.sink->AllBytes(), c.data);
    EXPECT_EQ(c.source->SamplesDelivered(), 10u);
    ASSERT_EQ(c.graph->Stop(), S_OK);
  }
  EXPECT_EQ(c.fake->starts, 2);
  EXPECT_EQ(c.fake->stops, 2);
}

TEST(MediaFwStreaming, StopDuringStreamingEndsTheSourceThreadCleanly) {
  Chain c;
  c.Feed(Pcm16(2, 44100), 44100, 100, true);
  c.fake->transform = [](IMediaSample*, IMediaSample*) { return S_FALSE; };  // swallow everything
  ASSERT_EQ(c.ConnectAll(), S_OK);
  ASSERT_EQ(c.graph->Run(), S_OK);
  EXPECT_EQ(c.graph->Stop(), S_OK);
  EXPECT_EQ(c.source->WaitUntilDone(kWait), S_OK);
  EXPECT_EQ(c.source->StreamStatus(), S_OK);
}

TEST(MediaFwFaults, EachSwitchFailsTheOperationTheFilterCalls) {
  Chain c;
  c.Feed(Pcm16(2, 44100), 50, 10, false);
  ASSERT_EQ(c.ConnectAll(), S_OK);
  ASSERT_EQ(c.graph->Run(), S_OK);

  // GetDeliveryBuffer of the transform's output fails at the second call.
  c.sink->Allocator()->FailGetBuffer(2, 1, E_OUTOFMEMORY);
  EXPECT_EQ(c.source->PushNext(), S_OK);
  EXPECT_EQ(c.source->PushNext(), E_OUTOFMEMORY);
  EXPECT_EQ(c.source->StreamStatus(), E_OUTOFMEMORY);
  EXPECT_EQ(c.sink->Samples().size(), 1u);
  EXPECT_EQ(c.sink->EndOfStreamCount(), 1) << "a failed stream still ends downstream";

  // Deliver: the sink fails Receive.
  c.graph->Stop();
  c.sink->Clear();
  c.sink->FailReceive(1, 1, VFW_E_RUNTIME_ERROR);
  ASSERT_EQ(c.graph->Run(), S_OK);
  EXPECT_EQ(c.source->PushNext(), VFW_E_RUNTIME_ERROR);
  EXPECT_TRUE(c.sink->Samples().empty());

  // A sample accessor of the output sample fails.
  c.graph->Stop();
  c.sink->Clear();
  c.sink->Allocator()->FailSampleCalls(ZQ_SAMPLE_SETTIME, 1, 1, E_UNEXPECTED);
  ASSERT_EQ(c.graph->Run(), S_OK);
  EXPECT_EQ(c.source->PushNext(), E_UNEXPECTED);
  c.sink->Allocator()->FailSampleCalls(0, 0);
}

TEST(MediaFwFaults, ThreadedSourceReportsAFailedDeliveryToTheGraph) {
  Chain c;
  c.Feed(Pcm16(2, 44100), 1000, 100, true);
  c.sink->FailReceive(3, 100, E_FAIL);
  ASSERT_EQ(c.ConnectAll(), S_OK);
  ASSERT_EQ(c.graph->Run(), S_OK);
  LONG event = 0;
  HRESULT status = S_OK;
  ASSERT_EQ(c.graph->WaitForCompletion(kWait, &event, &status), S_OK);
  // The abort is reported before the end of stream that follows it.
  EXPECT_EQ(c.source->WaitUntilDone(kWait), S_OK);
  EXPECT_EQ(c.source->StreamStatus(), E_FAIL);
  EXPECT_EQ(c.source->SamplesDelivered(), 2u);
  EXPECT_EQ(c.sink->Samples().size(), 2u);
  EXPECT_EQ(event, EC_ERRORABORT);
  EXPECT_EQ(status, E_FAIL);
}

TEST(MediaFwGraph, ReconnectNegotiatesTheOutputAfresh) {
  Chain c;
  c.Feed(Pcm16(2, 44100), 100, 10, false);
  ASSERT_EQ(c.ConnectAll(), S_OK);
  // The fake now offers mono output; downstream learns it by a reconnection.
  c.fake->checkTransform = [](const CMediaType*, const CMediaType*) { return S_OK; };
  c.fake->getMediaType = [](int pos, CMediaType* mt) -> HRESULT {
    if (pos > 0) return VFW_S_NO_MORE_ITEMS;
    WAVEFORMATEX mono = Pcm16(1, 44100);
    return CreateAudioMediaType(&mono, mt, TRUE);
  };
  ASSERT_EQ(c.fake->ReconnectPin(c.fake->Output(), nullptr), S_OK);
  EXPECT_EQ(reinterpret_cast<WAVEFORMATEX*>(c.sink->ConnectedType().Format())->nChannels, 1);
  EXPECT_EQ(c.fake->setTypes[PINDIR_OUTPUT], 2);

  // A reconnection from inside the input's CompleteConnect, as a filter does
  // when a new input type no longer fits its output.
  c.graph->Disconnect(c.source->OutputPin());
  c.graph->Disconnect(c.fake->Input());
  c.fake->getMediaType = [](int pos, CMediaType* mt) -> HRESULT {
    if (pos > 0) return VFW_S_NO_MORE_ITEMS;
    WAVEFORMATEX mono = Pcm16(1, 48000);
    return CreateAudioMediaType(&mono, mt, TRUE);
  };
  HRESULT inner = E_FAIL;
  c.fake->completeConnect = [&](PIN_DIRECTION dir, IPin*) {
    if (dir == PINDIR_INPUT && c.fake->Output()->IsConnected()) inner = c.fake->Graph()->Reconnect(c.fake->Output());
    return S_OK;
  };
  WAVEFORMATEX fmt = Pcm16(2, 48000);
  c.source->SetFormat(&fmt);
  ASSERT_EQ(c.ConnectInput(), S_OK);
  EXPECT_EQ(inner, S_OK);
  EXPECT_EQ(reinterpret_cast<WAVEFORMATEX*>(c.sink->ConnectedType().Format())->nSamplesPerSec, 48000u);

  EXPECT_EQ(c.graph->Reconnect(c.fake->Input()), S_OK) << "from the input side as well";
  c.graph->Disconnect(c.fake->Output());
  c.graph->Disconnect(c.sink->InputPin());
  EXPECT_EQ(c.graph->Reconnect(c.fake->Output()), VFW_E_NOT_CONNECTED);
  zqtest::CFakeTransform loose;
  loose.NonDelegatingAddRef();
  EXPECT_EQ(loose.ReconnectPin(loose.Output(), nullptr), VFW_E_NOT_IN_GRAPH);
  EXPECT_EQ(c.graph->Reconnect(loose.Output()), VFW_E_NOT_IN_GRAPH);
  loose.NonDelegatingAddRef();  // stack object: never reaches zero
}

TEST(MediaFwGraph, FiltersAreNamedFoundEnumeratedAndRemoved) {
  Chain c;
  c.Feed(Pcm16(2, 44100), 100, 10, false);
  ASSERT_EQ(c.ConnectAll(), S_OK);
  IBaseFilter* found = nullptr;
  ASSERT_EQ(c.graph->FindFilterByName(u"fake", &found), S_OK);
  EXPECT_EQ(found, static_cast<IBaseFilter*>(c.fake));
  found->Release();
  EXPECT_EQ(c.graph->FindFilterByName(u"nobody", &found), VFW_E_NOT_FOUND);
  FILTER_INFO info{};
  ASSERT_EQ(c.fake->QueryFilterInfo(&info), S_OK);
  EXPECT_EQ(std::u16string(info.achName), u"fake");
  EXPECT_EQ(info.pGraph, static_cast<IFilterGraph*>(c.graph));
  info.pGraph->Release();

  CZqCollectSink* second = nullptr;
  CZqCollectSink::Create(&second);
  EXPECT_EQ(c.graph->AddFilter(second, u"sink"), VFW_S_DUPLICATE_NAME);
  ASSERT_EQ(second->QueryFilterInfo(&info), S_OK);
  EXPECT_NE(std::u16string(info.achName), u"sink");
  info.pGraph->Release();
  IEnumFilters* filters = nullptr;
  ASSERT_EQ(c.graph->EnumFilters(&filters), S_OK);
  IBaseFilter* all[8] = {};
  ULONG n = 0;
  filters->Next(8, all, &n);
  EXPECT_EQ(n, 4u);
  for (ULONG i = 0; i < n; ++i) all[i]->Release();
  filters->Release();
  EXPECT_EQ(c.graph->RemoveFilter(second), S_OK);
  EXPECT_EQ(c.graph->RemoveFilter(second), VFW_E_NOT_FOUND);
  second->Release();

  // Pins by id and by name; the transform answers "In" and "Out".
  IPin* pin = nullptr;
  ASSERT_EQ(c.fake->FindPin(u"In", &pin), S_OK);
  EXPECT_EQ(pin, static_cast<IPin*>(c.fake->Input()));
  LPWSTR id = nullptr;
  ASSERT_EQ(pin->QueryId(&id), S_OK);
  EXPECT_EQ(std::u16string(id), u"In");
  CoTaskMemFree(id);
  PIN_INFO pinInfo{};
  ASSERT_EQ(pin->QueryPinInfo(&pinInfo), S_OK);
  EXPECT_EQ(pinInfo.dir, PINDIR_INPUT);
  EXPECT_EQ(pinInfo.pFilter, static_cast<IBaseFilter*>(c.fake));
  pinInfo.pFilter->Release();
  pin->Release();
  EXPECT_EQ(c.fake->FindPin(u"XForm In", &pin), VFW_E_NOT_FOUND);
  ASSERT_EQ(c.sink->FindPin(u"In", &pin), S_OK);
  pin->Release();

  // Removing the transform breaks both of its connections on both sides.
  ASSERT_EQ(c.graph->RemoveFilter(c.fake), S_OK);
  EXPECT_FALSE(c.source->OutputPin()->IsConnected());
  EXPECT_FALSE(c.sink->InputPin()->IsConnected());
  EXPECT_EQ(c.fake->Graph(), nullptr);
  EXPECT_EQ(c.graph->ConnectDirect(c.source->OutputPin(), c.fake->Input(), nullptr), VFW_E_NOT_IN_GRAPH);
}

TEST(MediaFwGraph, EverythingIsGoneAfterTeardown) {
  LONG before = CBaseObject::ObjectsActive();
  {
    Chain c;
    c.Feed(Pcm16(2, 44100), 441, 100, true);
    ASSERT_EQ(c.ConnectAll(), S_OK);
    ASSERT_EQ(c.graph->Run(), S_OK);
    LONG event = 0;
    ASSERT_EQ(c.graph->WaitForCompletion(kWait, &event), S_OK);
  }
  EXPECT_EQ(CBaseObject::ObjectsActive(), before);
}

// --- The frame way ---------------------------------------------------------------

// One sample of 40 frames in steps of 10, then end of stream with a tail of
// 25 frames drained in steps of 10; a fault is set before each.
struct FrameCase {
  const char* name;
  std::function<void(zqtest::Chain&)> receiveFault;
  HRESULT received;
  size_t framesOut;  // the first frames of the input, whatever was lost
  std::function<void(zqtest::Chain&)> drainFault;
  HRESULT ended;
  size_t tailOut;
  LONG endsDownstream;
};

void Nothing(zqtest::Chain&) {}

const FrameCase kFrameCases[] = {
    {"clean", Nothing, S_OK, 40, Nothing, S_OK, 25, 1},
    // A failed delivery loses its chunk; the input is not advanced past it,
    // the sample's frames still count as taken, and the last step's status
    // is the answer.
    {"deliver fails mid-sample", [](auto& c) { c.sink->FailReceive(2, 1, VFW_E_RUNTIME_ERROR); }, S_OK, 30,
     [](auto& c) { c.sink->FailReceive(2, 1, VFW_E_RUNTIME_ERROR); }, VFW_E_RUNTIME_ERROR, 10, 1},
    {"deliver fails at the last step", [](auto& c) { c.sink->FailReceive(4, 1, VFW_E_RUNTIME_ERROR); },
     VFW_E_RUNTIME_ERROR, 30, Nothing, S_OK, 25, 1},
    // Without a first buffer nothing happens at all, not even the end.
    {"no first buffer", [](auto& c) { c.sink->Allocator()->FailGetBuffer(1, 1, E_OUTOFMEMORY); }, E_OUTOFMEMORY, 0,
     [](auto& c) { c.sink->Allocator()->FailGetBuffer(1, 1, E_OUTOFMEMORY); }, E_OUTOFMEMORY, 0, 0},
    // A replacement that fails once is asked for again.
    {"a replacement fails once", [](auto& c) { c.sink->Allocator()->FailGetBuffer(2, 1, E_OUTOFMEMORY); }, S_OK, 40,
     [](auto& c) { c.sink->Allocator()->FailGetBuffer(2, 1, E_OUTOFMEMORY); }, E_OUTOFMEMORY, 10, 0},
    {"no more buffers", [](auto& c) { c.sink->Allocator()->FailGetBuffer(2, 100, E_OUTOFMEMORY); }, E_OUTOFMEMORY, 10,
     Nothing, S_OK, 25, 1},
    // A failed step keeps its buffer undelivered; a failed drain is dropped
    // and draining goes on.
    {"a step fails", [](auto& c) { c.fake->processFault = {2, 1, E_FAIL, 0}; }, S_OK, 30,
     [](auto& c) { c.fake->drainFault = {2, 1, E_FAIL, 0}; }, S_OK, 15, 1},
    {"the last step fails", [](auto& c) { c.fake->processFault = {4, 1, E_FAIL, 0}; }, E_FAIL, 30,
     [](auto& c) { c.sink->FailEndOfStream(1, 1, E_ABORT); }, E_ABORT, 25, 0},
};

class FrameWay : public ::testing::TestWithParam<FrameCase> {};

TEST_P(FrameWay, BuffersDeliveriesAndTheEndOfStream) {
  const FrameCase& t = GetParam();
  Chain c(ZqTransformMode::Frames);
  c.Feed(Pcm16(2, 44100), 40, 40, false);
  ASSERT_EQ(c.ConnectAll(), S_OK);
  ASSERT_EQ(c.graph->Run(), S_OK);
  t.receiveFault(c);
  EXPECT_EQ(c.source->PushNext(), t.received);
  std::vector<BYTE> got = c.sink->AllBytes();
  ASSERT_EQ(got.size(), t.framesOut * 4);
  EXPECT_TRUE(std::equal(got.begin(), got.end(), c.data.begin()));

  c.sink->Clear();
  c.sink->Allocator()->FailGetBuffer(0, 0);
  c.fake->tail = 25;
  if (t.drainFault) t.drainFault(c);
  EXPECT_EQ(c.fake->Input()->EndOfStream(), t.ended);
  EXPECT_EQ(c.sink->AllBytes(), std::vector<BYTE>(t.tailOut * 4, 0x5A));
  EXPECT_EQ(c.sink->EndOfStreamCount(), t.endsDownstream);
}

INSTANTIATE_TEST_SUITE_P(Faults, FrameWay, ::testing::ValuesIn(kFrameCases),
                         [](const auto& info) {
                           std::string name = info.param.name;
                           for (char& ch : name) ch = std::isalnum(static_cast<unsigned char>(ch)) ? ch : '_';
                           return name;
                         });

TEST(FrameWay, TimesMarksAndTheDrainedTail) {
  // Times run on from the last discontinuity in frames at the output rate;
  // only the first buffer after a marked sample carries its mark (every
  // sample of the source is a sync point); the tail carries none.
  Chain c(ZqTransformMode::Frames);
  c.Feed(Pcm16(2, 40000), 40, 20, false);
  c.source->SetStartTime(1000000);
  c.source->SetStartMediaTime(7);
  ASSERT_EQ(c.ConnectAll(), S_OK);
  ASSERT_EQ(c.graph->Run(), S_OK);
  ASSERT_EQ(c.source->PushNext(), S_OK);
  ASSERT_EQ(c.source->PushNext(), S_OK);
  c.fake->tail = 5;
  ASSERT_EQ(c.fake->Input()->EndOfStream(), S_OK);
  const std::vector<ZqReceivedSample> got = c.sink->Samples();
  ASSERT_EQ(got.size(), 5u);
  for (size_t i = 0; i < 4; ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(got[i].start, 1000000 + REFERENCE_TIME(i) * 2500);
    EXPECT_EQ(got[i].stop, got[i].start + 2500);
    EXPECT_EQ(got[i].mediaStart, 7 + LONGLONG(i) * 10);
    EXPECT_EQ(got[i].discontinuity, i == 0);
    EXPECT_EQ(got[i].syncPoint, i % 2 == 0);
    EXPECT_TRUE(got[i].answersSilence && !got[i].silent);
  }
  EXPECT_EQ(got[4].data.size(), 5u * 4);
  EXPECT_EQ(got[4].timeStatus, VFW_E_SAMPLE_TIME_NOT_SET);
  EXPECT_FALSE(got[4].discontinuity);
}

}  // namespace
