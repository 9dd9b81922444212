// SPDX-License-Identifier: MIT
#include "steering_clients.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "quor/keys.h"
#include "quor/model.h"
#include "quor/modelruntimestate.h"
#include "quor/resultMatrixInfo.h"
#include "quor/steeringclient.h"
#include "quor/steeringmodelstore.h"
#include "server_harness.h"

namespace quor_test {

namespace {
std::string Utf8(const wxString& p_sText) {
  const wxScopedCharBuffer l_cUtf8 = p_sText.utf8_str();
  return std::string(l_cUtf8.data(), l_cUtf8.length());
}
}  // namespace

bool RunClientThreads(const wxString& p_sService,
                      const std::vector<std::function<void(quor::SteeringClient&)> >& p_afBodies,
                      int p_nIndex) {
  std::atomic<size_t> l_nDone{0};
  std::vector<std::thread> l_acThreads;
  for (const auto& l_fBody : p_afBodies) {
    l_acThreads.emplace_back([&p_sService, &l_nDone, l_fBody, p_nIndex] {
      {
        quor::SteeringClient l_cClient(wxT("127.0.0.1"), p_sService);
        l_cClient.SetTimeout(30);
        if (l_cClient.ConnectToServer(true) != 1) {
          ADD_FAILURE() << "no connection";
        } else if (l_cClient.Initialize(p_nIndex) != 1) {
          ADD_FAILURE() << "cannot attach to model " << p_nIndex;
        } else {
          l_fBody(l_cClient);
        }
        delete l_cClient.GetModel();
      }
      ++l_nDone;
    });
  }
  const bool l_bDone =
      RunEventLoopUntil([&] { return l_nDone == p_afBodies.size(); }, 4 * CLIENT_DEADLINE_MS);
  for (std::thread& l_cThread : l_acThreads) l_cThread.join();
  return l_bDone;
}

RunStats ReadRunStats(quor::SteeringClient& p_rClient) {
  quor::ModelRuntimeState l_cState;
  RunStats l_cStats;
  l_cStats.result = p_rClient.ReadModelStatistics(l_cState);
  l_cStats.state = l_cState.GetAttributeValueInt(quor::keys::SIMULATOR_STATE);
  l_cStats.progress = l_cState.GetAttributeValueDouble(quor::keys::SIMULATOR_PROGRESS);
  l_cStats.runtime = l_cState.GetAttributeValueDouble(quor::keys::SIMULATOR_RUNTIME);
  l_cStats.error = l_cState.GetAttributeValueInt(quor::keys::ERROR_STATE);
  l_cStats.speed = l_cState.GetAttributeValueInt(quor::keys::SIMULATOR_SPEED);
  l_cStats.category = Utf8(l_cState.GetAttributeValueString(quor::keys::SIMULATOR_CATEGORY));
  l_cStats.algorithm =
      Utf8(l_cState.GetAttributeValueString(quor::keys::CURRENT_SIMULATOR_ALGORITHM));
  return l_cStats;
}

bool WaitForRunStats(quor::SteeringClient& p_rClient,
                     const std::function<bool(const RunStats&)>& p_fDone, RunStats* p_pcLast,
                     int p_nTimeoutMs) {
  const auto l_tDeadline =
      std::chrono::steady_clock::now() + std::chrono::milliseconds(p_nTimeoutMs);
  for (;;) {
    const RunStats l_cStats = ReadRunStats(p_rClient);
    if (p_pcLast != nullptr) *p_pcLast = l_cStats;
    if (l_cStats.result != 1) return false;
    if (p_fDone(l_cStats)) return true;
    if (std::chrono::steady_clock::now() > l_tDeadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
}

bool WaitForRunState(quor::SteeringClient& p_rClient, int p_nState, RunStats* p_pcLast) {
  return WaitForRunStats(
      p_rClient, [p_nState](const RunStats& p_rStats) { return p_rStats.state == p_nState; },
      p_pcLast);
}

std::unique_ptr<RawPeer> ConnectRawPeer(unsigned int p_nPort) {
  sockaddr_in l_cServer{};
  l_cServer.sin_family = AF_INET;
  l_cServer.sin_port = htons(static_cast<unsigned short>(p_nPort));
  l_cServer.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const int l_nFd = ::socket(AF_INET, SOCK_STREAM, 0);
  if (l_nFd >= 0 && ::connect(l_nFd, reinterpret_cast<const sockaddr*>(&l_cServer),
                              sizeof(l_cServer)) == 0)
    return std::unique_ptr<RawPeer>(new RawPeer(l_nFd));
  if (l_nFd >= 0) ::close(l_nFd);
  return nullptr;
}

void ExpectPlaceRows(quor::SteeringModelStore& p_rStore, int p_nModel, unsigned int p_nRows) {
  quor::ResultMatrixInfo l_cRows(0);
  p_rStore.GetResultMatrixInfo(p_nModel, l_cRows);
  ASSERT_EQ(l_cRows.GetRowCount(), p_nRows);
  for (unsigned int l_nRow = 0; l_nRow < p_nRows; ++l_nRow) {
    unsigned int l_nPosition = p_nRows;
    quor::RM_ROW_TYPE l_eType = quor::RM_ROW_TYPE_OBSERVER;
    l_cRows.GetRowInfo(l_nRow, l_nPosition, l_eType);
    EXPECT_EQ(l_nPosition, l_nRow);
    EXPECT_EQ(l_eType, quor::RM_ROW_TYPE_PLACE);
  }
}

std::string ErrorMessageOf(quor::SteeringClient& p_rClient) {
  wxString l_sMessage;
  EXPECT_EQ(p_rClient.ReceiveErrorMessage(l_sMessage), 1u);
  return Utf8(l_sMessage);
}

}  // namespace quor_test
