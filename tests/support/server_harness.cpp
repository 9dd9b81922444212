// SPDX-License-Identifier: MIT
#include "server_harness.h"

#include <wx/app.h>
#include <wx/apptrait.h>
#include <wx/evtloop.h>

#include <atomic>
#include <chrono>
#include <cstdio>

#include "quor/model.h"
#include "quor/modelView.h"
#include "quor/steeringclient.h"
#include "quor/steeringserver.h"

namespace quor_test {

ScriptedServer::ScriptedServer(std::function<void(RawPeer&)> p_fScript, uint32_t p_nVersion,
                               bool p_bAnnounce) {
  m_cThread = std::thread([this, p_fScript, p_nVersion, p_bAnnounce] {
    m_pcPeer = m_cListener.Accept();
    if (!m_pcPeer) return;
    if (p_bAnnounce) m_pcPeer->SendValue(p_nVersion);
    m_pcPeer->ClearRecorded();
    p_fScript(*m_pcPeer);
  });
}

ScriptedServer::~ScriptedServer() { Join(); }

wxString ScriptedServer::Service() const { return wxString::Format(wxT("%u"), Port()); }

void ScriptedServer::Join() {
  if (m_cThread.joinable()) m_cThread.join();
}

Bytes ScriptedServer::FromClient() {
  Join();
  return m_pcPeer ? m_pcPeer->Received() : Bytes();
}

ClientSession::ClientSession(std::function<void(RawPeer&)> p_fScript, uint32_t p_nVersion)
    : m_cServer(p_fScript, p_nVersion),
      m_pcClient(new quor::SteeringClient(wxT("127.0.0.1"), m_cServer.Service())),
      m_nConnected(m_pcClient->ConnectToServer(true)) {}

ClientSession::~ClientSession() {
  // The client goes first: a script still waiting for bytes sees the end of
  // the connection.
  m_pcClient.reset();
  m_cServer.Join();
}

WireModel ServeUpload(RawPeer& p_cPeer) {
  p_cPeer.RecvValue<int32_t>();
  p_cPeer.SendValue<uint32_t>(0);
  p_cPeer.RecvValue<int32_t>();
  p_cPeer.RecvValue<int32_t>();
  WireModel l_cModel = RecvModel(p_cPeer);
  p_cPeer.ClearRecorded();
  return l_cModel;
}

Bytes PackedAttributes(quor::SteeringVector& p_cSet) {
  Bytes l_aBlock;
  for (auto& l_cEntry : *p_cSet.GetAttributeList()) {
    Bytes l_aValue(l_cEntry.second->GetPackungSize());
    l_aValue.resize(l_cEntry.second->PackValue(l_aValue.data()));
    l_aBlock.insert(l_aBlock.end(), l_aValue.begin(), l_aValue.end());
  }
  return l_aBlock;
}

namespace {
Bytes RecvBlock(RawPeer& p_cPeer) {
  uint64_t l_nTotal = p_cPeer.RecvValue<uint64_t>();
  return p_cPeer.RecvFrame(static_cast<size_t>(l_nTotal));
}

bool SendBlock(RawPeer& p_cPeer, const Bytes& p_aBlock) {
  return p_cPeer.SendValue<uint64_t>(p_aBlock.size()) && p_cPeer.SendFrame(p_aBlock);
}
}  // namespace

WireModel RecvModel(RawPeer& p_cPeer) {
  WireModel l_cModel;
  l_cModel.type = p_cPeer.RecvValue<uint32_t>();
  l_cModel.attributes = RecvBlock(p_cPeer);
  uint32_t l_nViews = p_cPeer.RecvValue<uint32_t>();
  for (uint32_t i = 0; i < l_nViews && !p_cPeer.Failed(); ++i)
    l_cModel.views.push_back(RecvBlock(p_cPeer));
  l_cModel.activeView = p_cPeer.RecvValue<uint32_t>();
  p_cPeer.SendValue<uint32_t>(1);
  return l_cModel;
}

bool SendModel(RawPeer& p_cPeer, const WireModel& p_cModel, uint32_t* p_pnAck) {
  if (!p_cPeer.SendValue(p_cModel.type) || !SendBlock(p_cPeer, p_cModel.attributes) ||
      !p_cPeer.SendValue<uint32_t>(static_cast<uint32_t>(p_cModel.views.size())))
    return false;
  for (const Bytes& l_aView : p_cModel.views)
    if (!SendBlock(p_cPeer, l_aView)) return false;
  if (!p_cPeer.SendValue(p_cModel.activeView)) return false;
  uint32_t l_nAck = p_cPeer.RecvValue<uint32_t>();
  if (p_pnAck) *p_pnAck = l_nAck;
  return !p_cPeer.Failed();
}

std::pair<int32_t, int32_t> ServeAttach(RawPeer& p_cPeer, const WireModel& p_cModel) {
  p_cPeer.RecvValue<int32_t>();
  p_cPeer.SendValue<uint32_t>(1);
  p_cPeer.RecvValue<int32_t>();
  const int32_t l_nOption = p_cPeer.RecvValue<int32_t>();
  const int32_t l_nIndex = p_cPeer.RecvValue<int32_t>();
  SendModel(p_cPeer, p_cModel);
  return {l_nOption, l_nIndex};
}

Bytes Acks(size_t n) { return Bytes(n, 0x61); }

Bytes StringFrame(const std::string& p_s) { return Cat({Le<uint64_t>(p_s.size()), Text(p_s)}); }

Bytes Doubles(std::initializer_list<double> p_ad) {
  Bytes l_a;
  for (double l_d : p_ad) l_a = Cat({l_a, Le(l_d)});
  return l_a;
}

std::vector<quor::QU_SimulatorCategory> TwoCategories() {
  std::vector<quor::QU_SimulatorCategory> l_a(2);
  l_a[0].m_sCategoryName = wxT("ODE");
  l_a[0].m_nCategoryId = 3;
  l_a[0].m_asSimulatorNames = {wxT("euler"), wxT("rk4")};
  l_a[1].m_nCategoryId = -1;
  return l_a;
}

Bytes TwoCategoriesBytes() {
  return Cat({Le<uint32_t>(2), StringFrame("ODE"), Le<int32_t>(3), Le<uint32_t>(8),
              Le<uint64_t>(2), Hex("05 00 03 00"), Text("eulerrk4"), StringFrame(""),
              Le<int32_t>(-1), Le<uint32_t>(0), Le<uint64_t>(0)});
}

void SendTwoCategories(RawPeer& p) {
  p.SendValue<uint32_t>(2);
  p.SendString("ODE");
  p.SendValue<int32_t>(3);
  p.SendValue<uint32_t>(8);
  p.SendValue<uint64_t>(2);
  p.SendFrame(Hex("05 00 03 00"));
  p.SendFrame(Text("eulerrk4"));
  p.SendString("");
  p.SendValue<int32_t>(-1);
  p.SendValue<uint32_t>(0);
  p.SendValue<uint64_t>(0);
  p.SendFrame(Bytes());
}

void RecvCategories(RawPeer& p) {
  const uint32_t l_nCount = p.RecvValue<uint32_t>();
  for (uint32_t i = 0; i < l_nCount && !p.Failed(); ++i) {
    p.RecvString();
    p.RecvValue<int32_t>();
    const uint32_t l_nTotal = p.RecvValue<uint32_t>();
    const uint64_t l_nNames = p.RecvValue<uint64_t>();
    if (l_nNames) p.RecvFrame(l_nNames * 2);
    p.RecvFrame(l_nTotal);
  }
}

WireModel ImageOf(quor::Model& p_cModel) {
  WireModel l_cImage;
  l_cImage.type = p_cModel.GetModelType();
  l_cImage.attributes = PackedAttributes(p_cModel);
  for (quor::ModelView* l_pcView : *p_cModel.GetModelViews())
    l_cImage.views.push_back(PackedAttributes(*l_pcView));
  l_cImage.activeView = p_cModel.GetActiveView();
  return l_cImage;
}

bool RunEventLoopUntil(const std::function<bool()>& p_fDone, int p_nTimeoutMillis) {
  const auto l_cDeadline =
      std::chrono::steady_clock::now() + std::chrono::milliseconds(p_nTimeoutMillis);
  // The loop of the application's traits: a console application runs
  // wxWidgets' console loop, which dispatches socket events.
  // (The application object is a console one: wxTheApp would claim a GUI
  // wxApp.)
  //
  // One loop serves the whole process and stays active: a worker thread
  // that logs wakes the active loop up (wxLog asks wxEventLoopBase for it
  // and then locks its wake-up pipe), so a loop made and destroyed per call
  // could be destroyed between those two steps, leaving the worker locked
  // on freed memory.
  wxAppConsole* l_pcApp = wxAppConsole::GetInstance();
  static wxEventLoopBase* const s_pcLoop = [l_pcApp] {
    wxEventLoopBase* l_pcMade = l_pcApp->GetTraits()->CreateEventLoop();
    wxEventLoopBase::SetActive(l_pcMade);
    return l_pcMade;
  }();
  wxEventLoopBase* const l_pcLoop = s_pcLoop;
  while (!p_fDone() && std::chrono::steady_clock::now() < l_cDeadline) {
    l_pcLoop->DispatchTimeout(20);
    l_pcApp->ProcessPendingEvents();
  }
  return p_fDone();
}

namespace {
std::atomic<int> g_nAsserts{0};
wxAssertHandler_t g_pfPreviousAssertHandler = nullptr;

void CountAssert(const wxString& p_sFile, int p_nLine, const wxString& p_sFunction,
                 const wxString& p_sCondition, const wxString& p_sMessage) {
  ++g_nAsserts;
  // Kept on stderr so that a failing count can be explained.
  std::fprintf(stderr, "wx assertion %s(%d) in %s: %s %s\n", (const char*)p_sFile.utf8_str(),
               p_nLine, (const char*)p_sFunction.utf8_str(), (const char*)p_sCondition.utf8_str(),
               (const char*)p_sMessage.utf8_str());
}
}  // namespace

WxAssertCounter::WxAssertCounter() {
  g_nAsserts = 0;
  g_pfPreviousAssertHandler = wxSetAssertHandler(CountAssert);
}

WxAssertCounter::~WxAssertCounter() { wxSetAssertHandler(g_pfPreviousAssertHandler); }

int WxAssertCounter::Count() const { return g_nAsserts; }

void ReleaseListeningSocket(quor::SteeringServer& p_cServer) {
  wxSocketServer* l_pcSocket = p_cServer.GetServerSocket();
  if (l_pcSocket == nullptr) return;
  l_pcSocket->Notify(false);
  delete l_pcSocket;
}

}  // namespace quor_test
