// SPDX-License-Identifier: MIT
// quor-fuzz-seeds OUTDIR: writes the seed corpus of every fuzz target into
// OUTDIR/<target>/, one file per seed. Every seed is a valid message made by
// the library's own senders: the bytes they put on a loopback connection,
// recorded and written as a script (see fuzz_support.h) behind the target's
// header bytes. The seeds of the dispatcher and of the client are whole
// sessions of a real SteeringClient with a real SteeringDispatcher (its
// store filled by FillStore), recorded in both directions by a relay.
#include "fuzz_support.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>

#include "quor/attribute.h"
#include "quor/attributeVector.h"
#include "quor/coloredmodel.h"
#include "quor/model.h"
#include "quor/modelView.h"
#include "quor/modelruntimestate.h"
#include "quor/resultMatrixInfo.h"
#include "quor/simulatorattribute.h"
#include "quor/steeringclient.h"
#include "quor/steeringcmd.h"
#include "quor/steeringdispatcher.h"
#include "quor/steeringhandler.h"
#include "quor/steeringserver.h"

using namespace quor;
using namespace quor_fuzz;

namespace {

const char* const USAGE =
    "usage: %s [--help] [--version] OUTDIR\n"
    "Writes the seed corpus of every fuzz target into OUTDIR/<target>/.\n"
    "Exit status: 0 on success, 1 when a seed cannot be made or written,\n"
    "2 on a usage error.\n";

typedef std::function<void(wxSocketBase*)> Sender;

// What a sender puts on a loopback connection whose other end acknowledges
// every frame (it sends acknowledgement bytes ahead; the sender reads one
// per frame and takes a 4-byte reply it does not examine as "aaaa").
Bytes Capture(const Sender& p_fSend) {
  wxSocketClient l_cSocket(wxSOCKET_WAITALL | wxSOCKET_BLOCK);
  l_cSocket.SetTimeout(10);
  wxIPV4address l_cAddress;
  l_cAddress.Hostname(wxT("127.0.0.1"));
  l_cAddress.Service(Listener::Get().Port());
  l_cSocket.Connect(l_cAddress, true);
  const int l_nPeer = Listener::Get().Accept(10000);
  if (!l_cSocket.IsConnected() || l_nPeer < 0) Fail("no loopback connection");

  // Written once the sender is done: the peer then stops acknowledging.
  int l_anSent[2];
  if (::pipe(l_anSent) != 0) Fail("no pipe");
  Bytes l_aWire;
  std::thread l_cPeer([&] {
    bool l_bAcking = true;
    const Bytes l_aAcks(4096, FRAME_ACK);
    for (;;) {
      pollfd l_acPoll[2] = {{l_nPeer, static_cast<short>(POLLIN | (l_bAcking ? POLLOUT : 0)), 0},
                            {l_anSent[0], static_cast<short>(l_bAcking ? POLLIN : 0), 0}};
      if (::poll(l_acPoll, 2, 10000) < 0 && errno != EINTR) break;
      if (l_bAcking && l_acPoll[1].revents != 0) {
        ::shutdown(l_nPeer, SHUT_WR);
        l_bAcking = false;
      }
      const pollfd& l_cPoll = l_acPoll[0];
      if (l_cPoll.revents & (POLLIN | POLLHUP | POLLERR)) {
        uint8_t l_anChunk[65536];
        const ssize_t l_nGot = ::recv(l_nPeer, l_anChunk, sizeof(l_anChunk), MSG_DONTWAIT);
        if (l_nGot == 0 || (l_nGot < 0 && errno != EAGAIN && errno != EINTR)) break;
        if (l_nGot > 0) l_aWire.insert(l_aWire.end(), l_anChunk, l_anChunk + l_nGot);
      }
      if (l_bAcking && (l_cPoll.revents & POLLOUT))
        ::send(l_nPeer, l_aAcks.data(), l_aAcks.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    }
    ::close(l_nPeer);
  });
  p_fSend(&l_cSocket);
  if (::write(l_anSent[1], "x", 1) != 1) Fail("no pipe");
  // Read the acknowledgements the sender left, so that closing sends no
  // reset that could cut the recording short.
  const int l_nFd = static_cast<int>(l_cSocket.GetSocket());
  for (;;) {
    pollfd l_cPoll = {l_nFd, POLLIN, 0};
    if (::poll(&l_cPoll, 1, 10000) <= 0) break;
    char l_acChunk[4096];
    if (::recv(l_nFd, l_acChunk, sizeof(l_acChunk), MSG_DONTWAIT) <= 0) break;
  }
  l_cSocket.Close();
  l_cPeer.join();
  ::close(l_anSent[0]);
  ::close(l_anSent[1]);
  return l_aWire;
}

// A whole session of a client with a real dispatcher, recorded by a relay:
// what the client sent, and what the server sent.
struct Session {
  Bytes m_aFromClient;
  Bytes m_aFromServer;
};

// Forwards both ways between two descriptors until both have ended,
// recording each direction.
void Relay(int p_nClient, int p_nServer, Session& p_cSession) {
  int l_anFds[2] = {p_nClient, p_nServer};
  Bytes* l_apaRecord[2] = {&p_cSession.m_aFromClient, &p_cSession.m_aFromServer};
  bool l_abOpen[2] = {true, true};
  while (l_abOpen[0] || l_abOpen[1]) {
    pollfd l_acPoll[2] = {{l_anFds[0], static_cast<short>(l_abOpen[0] ? POLLIN : 0), 0},
                          {l_anFds[1], static_cast<short>(l_abOpen[1] ? POLLIN : 0), 0}};
    if (::poll(l_acPoll, 2, 30000) <= 0) Fail("the recorded session stalled");
    for (int i = 0; i < 2; ++i) {
      if (!l_abOpen[i] || !(l_acPoll[i].revents & (POLLIN | POLLHUP | POLLERR))) continue;
      uint8_t l_anChunk[65536];
      const ssize_t l_nGot = ::recv(l_anFds[i], l_anChunk, sizeof(l_anChunk), 0);
      if (l_nGot <= 0) {
        l_abOpen[i] = false;
        ::shutdown(l_anFds[1 - i], SHUT_WR);
        continue;
      }
      AckAtOnce(l_anFds[i]);
      l_apaRecord[i]->insert(l_apaRecord[i]->end(), l_anChunk, l_anChunk + l_nGot);
      for (ssize_t l_nDone = 0; l_nDone < l_nGot;) {
        const ssize_t l_nPut = ::send(l_anFds[1 - i], l_anChunk + l_nDone,
                                      static_cast<size_t>(l_nGot - l_nDone), MSG_NOSIGNAL);
        if (l_nPut <= 0) break;
        l_nDone += l_nPut;
      }
    }
  }
}

Session RecordSession(const std::vector<ClientOp>& p_aeOps) {
  SteeringHandler l_cHandler;
  FillStore(l_cHandler.GetStore());
  SteeringDispatcher l_cDispatcher(LoopbackServer(), l_cHandler);
  if (!l_cDispatcher.Start()) Fail("the dispatcher does not start");

  Session l_cSession;
  std::thread l_cRelay([&] {
    const int l_nClient = Listener::Get().Accept(10000);
    if (l_nClient < 0) Fail("the client did not come");
    const int l_nServer = ConnectLoopback(static_cast<unsigned short>(LoopbackServer().GetPort()));
    Relay(l_nClient, l_nServer, l_cSession);
    ::close(l_nClient);
    ::close(l_nServer);
  });
  std::atomic<bool> l_bDone(false);
  std::thread l_cClientThread([&] {
    {
      SteeringClient l_cClient(wxT("127.0.0.1"),
                               wxString::Format(wxT("%u"), static_cast<unsigned int>(Listener::Get().Port())));
      if (l_cClient.ConnectToServer(true) != 1) Fail("the client cannot connect through the relay");
      {
        ClientRun l_cRun(l_cClient);
        for (ClientOp l_eOp : p_aeOps) l_cRun.Run(l_eOp);
      }
      l_cClient.DisConnectFromServer();
    }
    l_cRelay.join();
    l_bDone.store(true);
    WakeUpEvents();
  });
  while (!l_bDone.load()) PumpEvents(1000);
  l_cClientThread.join();
  l_cDispatcher.Shutdown();
  PumpEvents(0);
  return l_cSession;
}

// The seeds of all targets, by target.
class Corpus {
 public:
  void Add(const std::string& p_sTarget, const std::string& p_sLabel, const Bytes& p_aHeader,
           const Bytes& p_aWire) {
    Bytes l_aSeed = p_aHeader;
    // The script keeps compressed values as values (the recorded deflate
    // bytes may come from another deflate implementation than the one a
    // replay uses), so it must give itself back through its own wire.
    const Bytes l_aScript = ScriptOf(p_aWire);
    const Bytes l_aReplayed = WireOf(l_aScript.data(), l_aScript.size());
    if (ScriptOf(l_aReplayed) != l_aScript)
      Fail("%s/%s: the script does not give the recorded values back", p_sTarget.c_str(),
           p_sLabel.c_str());
    l_aSeed.insert(l_aSeed.end(), l_aScript.begin(), l_aScript.end());
    AddRaw(p_sTarget, p_sLabel, l_aSeed);
  }
  void AddRaw(const std::string& p_sTarget, const std::string& p_sLabel, const Bytes& p_aSeed) {
    std::vector<std::pair<std::string, Bytes> >& l_aSeeds = m_mSeeds[p_sTarget];
    char l_acNumber[16];
    std::snprintf(l_acNumber, sizeof(l_acNumber), "%03zu-", l_aSeeds.size());
    l_aSeeds.emplace_back(l_acNumber + p_sLabel, p_aSeed);
  }
  bool Write(const std::filesystem::path& p_cFolder) const {
    size_t l_nCount = 0;
    for (const auto& l_cTarget : m_mSeeds) {
      const std::filesystem::path l_cDir = p_cFolder / l_cTarget.first;
      std::error_code l_cError;
      std::filesystem::remove_all(l_cDir, l_cError);
      std::filesystem::create_directories(l_cDir, l_cError);
      if (l_cError) return false;
      for (const auto& l_cSeed : l_cTarget.second) {
        std::ofstream l_cFile(l_cDir / l_cSeed.first, std::ios::binary);
        l_cFile.write(reinterpret_cast<const char*>(l_cSeed.second.data()),
                      static_cast<std::streamsize>(l_cSeed.second.size()));
        if (!l_cFile) return false;
        ++l_nCount;
      }
    }
    std::fprintf(stderr, "quor-fuzz-seeds: %zu seeds for %zu targets in %s\n", l_nCount,
                 m_mSeeds.size(), p_cFolder.c_str());
    return true;
  }

 private:
  std::map<std::string, std::vector<std::pair<std::string, Bytes> > > m_mSeeds;
};

Bytes Pattern(size_t p_nSize, unsigned int p_nModulus) {
  Bytes l_a(p_nSize);
  for (size_t i = 0; i < p_nSize; ++i) l_a[i] = static_cast<uint8_t>(i % p_nModulus);
  return l_a;
}

void AddNumber(Bytes& p_aHeader, uint32_t p_nValue) {
  for (int i = 0; i < 4; ++i) p_aHeader.push_back(static_cast<uint8_t>(p_nValue >> (8 * i)));
}

// Frames: each entry a value of that many bytes, or a string (text).
struct FrameSeed {
  bool m_bString;
  Bytes m_aValue;
  wxString m_sText;
};

void AddFrames(Corpus& p_cCorpus, const std::string& p_sLabel, const std::vector<FrameSeed>& p_acFrames) {
  Bytes l_aHeader{static_cast<uint8_t>(p_acFrames.size() - 1)};
  for (const FrameSeed& l_cFrame : p_acFrames) {
    l_aHeader.push_back(l_cFrame.m_bString ? 1 : 0);
    AddNumber(l_aHeader, static_cast<uint32_t>(l_cFrame.m_aValue.size()));
  }
  p_cCorpus.Add("frames", p_sLabel, l_aHeader, Capture([&](wxSocketBase* p_pcSocket) {
    SteeringBase l_cBase(p_pcSocket);
    for (const FrameSeed& l_cFrame : p_acFrames) {
      if (l_cFrame.m_bString)
        l_cBase.SendString(l_cFrame.m_sText);
      else  // (never a NULL pointer, not even for 0 bytes)
        l_cBase.SendValue(l_cFrame.m_aValue.empty() ? "" : static_cast<const void*>(l_cFrame.m_aValue.data()),
                          static_cast<unsigned int>(l_cFrame.m_aValue.size()));
    }
  }));
}

FrameSeed Value(const Bytes& p_aValue) { return {false, p_aValue, wxT("")}; }
FrameSeed Text(const wxString& p_sText) { return {true, {}, p_sText}; }

void MakeFrameSeeds(Corpus& p_cCorpus) {
  AddFrames(p_cCorpus, "value-4", {Value(Pattern(4, 7))});
  AddFrames(p_cCorpus, "value-0", {Value({})});
  AddFrames(p_cCorpus, "value-100-raw", {Value(Pattern(100, 251))});
  AddFrames(p_cCorpus, "value-101-compressed", {Value(Pattern(101, 251))});
  AddFrames(p_cCorpus, "value-4096-compressed", {Value(Pattern(4096, 3))});
  AddFrames(p_cCorpus, "value-65536-compressed", {Value(Pattern(65536, 251))});
  AddFrames(p_cCorpus, "string-empty", {Text(wxT(""))});
  AddFrames(p_cCorpus, "string-abc", {Text(wxT("abc"))});
  AddFrames(p_cCorpus, "string-150-compressed", {Text(wxString(wxT('x'), 150))});
  AddFrames(p_cCorpus, "string-non-ascii", {Text(wxString::FromUTF8("\xc3\xa9t\xc3\xa9"))});
  AddFrames(p_cCorpus, "mixed", {Value(Pattern(8, 9)), Text(wxT("name")), Value(Pattern(200, 13)),
                                 Text(wxString(wxT('y'), 101))});
  AddFrames(p_cCorpus, "mixed-small", {Text(wxT("a")), Text(wxT("")), Value(Pattern(24, 5)),
                                       Value(Pattern(1, 2))});
}

void MakeUnpackSeeds(Corpus& p_cCorpus) {
  for (unsigned int l_nClass = 0; l_nClass < ATTRIBUTE_CLASS_COUNT; ++l_nClass) {
    for (bool l_bFilledSender : {false, true}) {
      Specimen l_cSpecimen = MakeSpecimen(l_nClass, l_bFilledSender);
      Bytes l_aPacked(l_cSpecimen.m_pcAttribute->GetPackungSize());
      l_cSpecimen.m_pcAttribute->PackValue(l_aPacked.data());
      for (bool l_bFilledReceiver : {false, true}) {
        Bytes l_aSeed{static_cast<uint8_t>(l_nClass | (l_bFilledReceiver ? 0x80 : 0))};
        l_aSeed.insert(l_aSeed.end(), l_aPacked.begin(), l_aPacked.end());
        p_cCorpus.AddRaw("unpack",
                         std::string(static_cast<const char*>(l_cSpecimen.m_pcAttribute->GetName().utf8_str())) +
                             (l_bFilledSender ? "-values" : "-empty") + (l_bFilledReceiver ? "-into-filled" : ""),
                         l_aSeed);
      }
    }
  }
}

void MakeAttributeListSeeds(Corpus& p_cCorpus) {
  for (bool l_bFilled : {false, true}) {
    p_cCorpus.Add("attribute_list", l_bFilled ? "all-classes-values" : "all-classes-empty",
                  {static_cast<uint8_t>(l_bFilled ? 0x80 : 0), 0}, Capture([&](wxSocketBase* p_pcSocket) {
                    std::vector<Specimen> l_acKeep;
                    SteeringVector l_cSet(p_pcSocket);
                    AddAllSpecimens(l_cSet, l_acKeep, true);
                    l_cSet.SendAttributes();
                  }));
  }
  for (unsigned int l_nClass = 0; l_nClass < ATTRIBUTE_CLASS_COUNT; ++l_nClass) {
    Specimen l_cSpecimen = MakeSpecimen(l_nClass, true);
    const std::string l_sName = static_cast<const char*>(l_cSpecimen.m_pcAttribute->GetName().utf8_str());
    p_cCorpus.Add("attribute_list", "set-of-" + l_sName, {1, static_cast<uint8_t>(l_nClass)},
                  Capture([&](wxSocketBase* p_pcSocket) {
                    Specimen l_cOne = MakeSpecimen(l_nClass, true);
                    SteeringVector l_cSet(p_pcSocket);
                    Attribute* l_pcAttribute = l_cOne.m_pcAttribute.release();
                    l_cSet.AddAttribute(l_pcAttribute->GetName(), l_pcAttribute);
                    l_cSet.SendAttributes();
                  }));
    p_cCorpus.Add("attribute_list", "frames-of-" + l_sName, {2, static_cast<uint8_t>(l_nClass)},
                  Capture([&](wxSocketBase* p_pcSocket) {
                    SteeringVector l_cSet(p_pcSocket);
                    l_cSpecimen.m_pcAttribute->SendValue(&l_cSet);
                  }));
  }
}

void MakeModelSeeds(Corpus& p_cCorpus) {
  struct Case {
    const char* m_sLabel;
    std::function<Model*()> m_fMake;
  };
  const Case l_acCases[] = {
      {"sample", [] { return SampleModel(); }},
      {"coloured", [] { return static_cast<Model*>(SampleColoredModel()); }},
      {"empty", [] { return new Model(nullptr, wxT(""), 0, 0); }},
      {"two-views", [] {
         Model* l_pcModel = SampleModel();
         l_pcModel->AddModelView(new ModelView(wxT("second"), nullptr));
         l_pcModel->SetActiveView(1);
         return l_pcModel;
       }},
  };
  for (const Case& l_cCase : l_acCases) {
    p_cCorpus.Add("model", std::string("whole-") + l_cCase.m_sLabel, {0},
                  Capture([&](wxSocketBase* p_pcSocket) {
                    std::unique_ptr<Model> l_pcModel(l_cCase.m_fMake());
                    l_pcModel->SetClientSocket(p_pcSocket);
                    SteeringControl l_cControl(p_pcSocket);
                    l_cControl._SendExistingModel(l_pcModel.get());
                  }));
    p_cCorpus.Add("model", std::string("views-") + l_cCase.m_sLabel, {1},
                  Capture([&](wxSocketBase* p_pcSocket) {
                    std::unique_ptr<Model> l_pcModel(l_cCase.m_fMake());
                    l_pcModel->SetClientSocket(p_pcSocket);
                    l_pcModel->SendModelViews();
                  }));
  }
}

void MakeViewSeeds(Corpus& p_cCorpus) {
  for (bool l_bCurves : {false, true}) {
    const Bytes l_aWire = Capture([&](wxSocketBase* p_pcSocket) {
      std::unique_ptr<ModelView> l_pcView(l_bCurves ? SampleView() : new ModelView(wxT("empty"), nullptr));
      l_pcView->SendView(p_pcSocket);
    });
    for (uint8_t l_nHeader : {0x00, 0x80})
      p_cCorpus.Add("view", std::string(l_bCurves ? "curves" : "no-curves") + (l_nHeader ? "-into-filled" : ""),
                    {l_nHeader}, l_aWire);
  }
}

void MakeSettingsSeeds(Corpus& p_cCorpus) {
  for (bool l_bFilled : {false, true}) {
    const Bytes l_aWire = Capture([&](wxSocketBase* p_pcSocket) {
      SteeringBase l_cBase(p_pcSocket);
      SimulatorAttribute l_cSettings;
      if (l_bFilled) FillSettings(l_cSettings);
      l_cSettings.SendAttributes(&l_cBase);
    });
    for (uint8_t l_nHeader : {0x00, 0x80})
      p_cCorpus.Add("settings", std::string(l_bFilled ? "two" : "none") + (l_nHeader ? "-into-filled" : ""),
                    {l_nHeader}, l_aWire);
  }
}

void MakeMatrixInfoSeeds(Corpus& p_cCorpus) {
  for (unsigned int l_nRows : {0u, 3u, 40u}) {
    const Bytes l_aWire = Capture([&](wxSocketBase* p_pcSocket) {
      SteeringBase l_cBase(p_pcSocket);
      ResultMatrixInfo l_cInfo(l_nRows);
      for (unsigned int i = 0; i < l_nRows; ++i) l_cInfo.SetRowInfo(i, i * 2, static_cast<RM_ROW_TYPE>(i % 4));
      l_cInfo.SendValue(&l_cBase);
    });
    for (uint8_t l_nHeader : {0x00, 0x80})
      p_cCorpus.Add("matrix_info", "rows-" + std::to_string(l_nRows) + (l_nHeader ? "-into-filled" : ""),
                    {l_nHeader}, l_aWire);
  }
}

void MakeRuntimeStateSeeds(Corpus& p_cCorpus) {
  for (bool l_bFilled : {false, true}) {
    for (uint8_t l_nMode : {0, 1}) {
      const Bytes l_aWire = Capture([&](wxSocketBase* p_pcSocket) {
        ModelRuntimeState l_cState;
        if (l_bFilled) FillRuntimeState(l_cState);
        if (l_nMode == 0) {
          l_cState.SendAttributes(p_pcSocket);
        } else {
          SteeringControl l_cControl(p_pcSocket);
          l_cControl.SendModelStatistics(l_cState);
        }
      });
      p_cCorpus.Add("runtime_state",
                    std::string(l_nMode ? "statistics-" : "state-") + (l_bFilled ? "values" : "defaults"),
                    {static_cast<uint8_t>(l_nMode | (l_bFilled ? 0x80 : 0))}, l_aWire);
    }
  }
}

void MakeStringListSeeds(Corpus& p_cCorpus) {
  std::vector<wxString> l_asMany;
  for (int i = 0; i < 100; ++i) l_asMany.push_back(wxString::Format(wxT("name %d"), i));
  const std::pair<const char*, std::vector<wxString> > l_acLists[] = {
      {"empty", {}},
      {"abc-and-empty", {wxT("abc"), wxT("")}},
      {"hundred", l_asMany},
      {"long-and-non-ascii", {wxString::FromUTF8("\xc3\xa9"), wxString(wxT('z'), 300)}},
  };
  for (const auto& l_cList : l_acLists) {
    const Bytes l_aWire = Capture([&](wxSocketBase* p_pcSocket) {
      SteeringVector l_cSet(p_pcSocket);
      l_cSet.SendVectorString(l_cList.second);
    });
    for (uint8_t l_nMode : {0x00, 0x01, 0x80, 0x81})
      p_cCorpus.Add("string_list",
                    std::string(l_cList.first) + ((l_nMode & 1) ? "-attribute" : "") + ((l_nMode & 0x80) ? "-into-filled" : ""),
                    {l_nMode}, l_aWire);
  }
}

void MakeArraySeeds(Corpus& p_cCorpus) {
  // The specimens of the four array classes: ints, unsigned 64-bit,
  // doubles, pairs.
  const unsigned int l_anClasses[] = {8, 9, 7, 12};
  for (uint8_t l_nClass = 0; l_nClass < 4; ++l_nClass) {
    for (size_t l_nCount : {0, 3, 40}) {
      const Bytes l_aWire = Capture([&](wxSocketBase* p_pcSocket) {
        SteeringVector l_cSet(p_pcSocket);
        Specimen l_cSpecimen = MakeSpecimen(l_anClasses[l_nClass], false);
        Attribute* l_pcAttribute = l_cSpecimen.m_pcAttribute.get();
        for (size_t i = 0; i < l_nCount; ++i) {
          if (auto* l_pc = dynamic_cast<AttributeVectorInt*>(l_pcAttribute))
            l_pc->GetValue().push_back(static_cast<int>(i) - 5);
          else if (auto* l_pc = dynamic_cast<AttributeVectorULong*>(l_pcAttribute))
            l_pc->GetValue().push_back(i * 1000);
          else if (auto* l_pc = dynamic_cast<AttributeVectorDouble*>(l_pcAttribute))
            l_pc->GetValue().push_back(static_cast<double>(i) / 3.0);
          else if (auto* l_pc = dynamic_cast<AttributeVectorULong2ULong*>(l_pcAttribute))
            l_pc->AddElement(i, i + 1);
        }
        l_pcAttribute->SendValue(&l_cSet);
      });
      for (uint8_t l_nFilled : {0x00, 0x80})
        p_cCorpus.Add("array",
                      static_cast<const char*>(MakeSpecimen(l_anClasses[l_nClass], false).m_pcAttribute->GetName().utf8_str()) +
                          std::string("-") + std::to_string(l_nCount) + (l_nFilled ? "-into-filled" : ""),
                      {static_cast<uint8_t>(l_nClass | l_nFilled)}, l_aWire);
    }
  }
}

void MakeMatrixSeeds(Corpus& p_cCorpus) {
  const std::pair<size_t, size_t> l_acShapes[] = {{0, 0}, {2, 3}, {20, 20}, {5, 0}};
  for (const auto& l_cShape : l_acShapes) {
    const Bytes l_aWire = Capture([&](wxSocketBase* p_pcSocket) {
      SteeringVector l_cSet(p_pcSocket);
      l_cSet.SendVector2D(SampleMatrix(l_cShape.first, l_cShape.second));
    });
    const std::string l_sShape = std::to_string(l_cShape.first) + "x" + std::to_string(l_cShape.second);
    for (uint8_t l_nMode : {0x00, 0x80, 0x01})
      p_cCorpus.Add("matrix", l_sShape + ((l_nMode & 1) ? "-sub" : "") + ((l_nMode & 0x80) ? "-into-filled" : ""),
                    {l_nMode}, l_aWire);
  }
}

void MakeControlSeeds(Corpus& p_cCorpus) {
  p_cCorpus.Add("control", "interval", {0}, Capture([](wxSocketBase* p_pcSocket) {
                  SteeringCMD l_cControl(p_pcSocket);
                  l_cControl.SendSimulationInterval(0.0, 50.0, 0.25);
                }));
  p_cCorpus.Add("control", "start", {1}, Capture([](wxSocketBase* p_pcSocket) {
                  SteeringCMD l_cControl(p_pcSocket);
                  l_cControl.SendStartCMD(wxT("continuous"), 0.0, 10.0, 1.0);
                }));
  for (bool l_bEmpty : {false, true}) {
    const Bytes l_aWire = Capture([&](wxSocketBase* p_pcSocket) {
      SteeringCMD l_cControl(p_pcSocket);
      l_cControl.SendAvailableSimulators(l_bEmpty ? std::vector<QU_SimulatorCategory>() : SampleSimulators());
    });
    p_cCorpus.Add("control", l_bEmpty ? "no-simulators" : "simulators", {2}, l_aWire);
    p_cCorpus.Add("control", l_bEmpty ? "no-simulators-into-filled" : "simulators-into-filled", {0x82}, l_aWire);
  }
}

// Send_CMD(c) without a value, for a c outside the five commands, is left
// out: the dispatcher reads a double after such a CMD_TYPE (Send_CMD with a
// value), so the two wait for each other until the socket timeout.
bool InSession(ClientOp p_eOp) { return p_eOp != OP_COMMAND; }

void MakeSessionSeeds(Corpus& p_cCorpus) {
  std::vector<std::vector<ClientOp> > l_aaeSessions;
  for (uint8_t l_nOp = 0; l_nOp < CLIENT_OP_COUNT; ++l_nOp) {
    const ClientOp l_eOp = static_cast<ClientOp>(l_nOp);
    if (!InSession(l_eOp)) continue;
    if (l_eOp == OP_ATTACH_0) {
      l_aaeSessions.push_back({l_eOp});
    } else {
      l_aaeSessions.push_back({OP_ATTACH_0, l_eOp});
      if (!NeedsModel(l_eOp)) l_aaeSessions.push_back({l_eOp});
    }
  }
  l_aaeSessions.push_back({OP_ATTACH_1, OP_READ_MODEL_VIEWS, OP_WRITE_MODEL_VIEWS});
  l_aaeSessions.push_back({OP_UPLOAD, OP_READ_PARAMETERS, OP_CHANGE_MODEL});
  l_aaeSessions.push_back({OP_ATTACH_0, OP_CHANGE_PARAMETER, OP_READ_PARAMETERS, OP_RESET_PARAMETERS});
  l_aaeSessions.push_back({OP_ATTACH_0, OP_WRITE_RESULT_MATRIX, OP_READ_RESULT_MATRIX, OP_REMOVE_MODEL});
  for (const std::vector<ClientOp>& l_aeOps : l_aaeSessions) {
    const Session l_cSession = RecordSession(l_aeOps);
    std::string l_sLabel;
    Bytes l_aHeader{static_cast<uint8_t>(l_aeOps.size() - 1)};
    for (ClientOp l_eOp : l_aeOps) {
      l_sLabel += (l_sLabel.empty() ? "" : "+") + std::string(ClientOpName(l_eOp));
      l_aHeader.push_back(l_eOp);
    }
    p_cCorpus.Add("dispatcher", l_sLabel, {}, l_cSession.m_aFromClient);
    if (l_aeOps.size() <= 4 && l_cSession.m_aFromServer.size() >= 4)
      p_cCorpus.Add("client", l_sLabel, l_aHeader,
                    Bytes(l_cSession.m_aFromServer.begin() + 4, l_cSession.m_aFromServer.end()));
  }
  // A longer session for the dispatcher: registration, then one of every
  // operation that works on a model.
  std::vector<ClientOp> l_aeAll{OP_ATTACH_0};
  for (uint8_t l_nOp = OP_PAUSE; l_nOp < CLIENT_OP_COUNT; ++l_nOp)
    if (InSession(static_cast<ClientOp>(l_nOp))) l_aeAll.push_back(static_cast<ClientOp>(l_nOp));
  p_cCorpus.Add("dispatcher", "every-operation", {}, RecordSession(l_aeAll).m_aFromClient);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && std::strcmp(argv[1], "--help") == 0) {
    std::printf(USAGE, argv[0]);
    return 0;
  }
  if (argc == 2 && std::strcmp(argv[1], "--version") == 0) {
    std::printf("quor-fuzz-seeds (QUOR Steering) %s\n", QUOR_VERSION);
    return 0;
  }
  if (argc != 2 || argv[1][0] == '-') {
    std::fprintf(stderr, USAGE, argv[0]);
    return 2;
  }
  Initialize();
  Corpus l_cCorpus;
  MakeFrameSeeds(l_cCorpus);
  MakeUnpackSeeds(l_cCorpus);
  MakeAttributeListSeeds(l_cCorpus);
  MakeModelSeeds(l_cCorpus);
  MakeViewSeeds(l_cCorpus);
  MakeSettingsSeeds(l_cCorpus);
  MakeMatrixInfoSeeds(l_cCorpus);
  MakeRuntimeStateSeeds(l_cCorpus);
  MakeStringListSeeds(l_cCorpus);
  MakeArraySeeds(l_cCorpus);
  MakeMatrixSeeds(l_cCorpus);
  MakeControlSeeds(l_cCorpus);
  MakeSessionSeeds(l_cCorpus);
  if (!l_cCorpus.Write(argv[1])) {
    std::fprintf(stderr, "%s: cannot write the seeds into %s\n", argv[0], argv[1]);
    return 1;
  }
  return 0;
}
