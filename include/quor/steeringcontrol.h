// SPDX-License-Identifier: MIT
// The control messages that both ends of a steering connection exchange,
// each as a pair of halves (one sends, the peer receives): the simulation
// interval, the list of available simulators, the model statistics and a
// whole model. Also the request codes that open every client request and the
// two command enumerations.
//
// A request on the wire: the client sends its REQUEST_TYPE as one 4-byte
// value frame, then the frames of that request in a fixed order; every
// frame is acknowledged by its receiver, and there is no other confirmation.
#ifndef QUOR_STEERINGCONTROL_H
#define QUOR_STEERINGCONTROL_H

#include <vector>

#include "quor/export.h"
#include "quor/steeringvector.h"

namespace quor {

class Model;
class ModelRuntimeState;

// The protocol version a server announces (4 bytes) as soon as a client has
// connected. A client refuses any other version.
constexpr unsigned int STEERING_PROTOCOL_VERSION = 7;

// The code that opens every request of a client, sent as 4 bytes. After it,
// each request continues with its own frames (→ client to server,
// ← server to client):
enum REQUEST_TYPE : int {
  // → CMD_TYPE (4); then nothing, → a double (8) or → a start command.
  REQUEST_SEND_CMD = 1,
  // ← list of strings.
  REQUEST_GET_RUNNING_MODEL_NAMES = 2,
  // ← matrix of doubles.
  REQUEST_READ_RESULT_MATRIX = 3,
  // ← matrix of doubles.
  REQUEST_READ_RATE_MATRIX = 4,
  // → matrix of doubles.
  REQUEST_WRITE_RESULT_MATRIX = 5,
  // → STEERING_OPTION (4); option 1: → the model; otherwise → model index
  // (4, signed) and ← the model.
  REQUEST_STEERING_OPTION = 6,
  // → model index (4); ← the model.
  REQUEST_CHANGE_CURRENT_MODEL = 7,
  // ← simulator state (4).
  REQUEST_READ_SIMULATOR_STATE = 8,
  // ← simulation interval (24).
  REQUEST_READ_SIMULATION_INTERVAL = 9,
  // ← available simulators.
  REQUEST_READ_AVAILABLE_SIMULATORS = 10,
  // → available simulators.
  REQUEST_WRITE_AVAILABLE_SIMULATORS = 11,
  // ← string, ← string.
  REQUEST_READ_CURRENT_SIMULATOR_NAME = 12,
  // ← the model's views.
  REQUEST_READ_MODEL_VIEWS = 13,
  // → the model's views.
  REQUEST_WRITE_MODEL_VIEWS = 14,
  // ← model statistics.
  REQUEST_READ_MODEL_STATISTICS = 15,
  // → position (8), → value (8).
  REQUEST_CHANGE_CURRENT_PARAMETER_VALUES = 16,
  // → position (8), → value (8).
  REQUEST_CHANGE_CURRENT_PLACE_VALUES = 17,
  // ← count (8), ← count doubles as one frame.
  REQUEST_READ_CURRENT_PARAMETER_VALUES = 18,
  // ← count (8), ← count doubles as one frame.
  REQUEST_READ_CURRENT_PLACE_VALUES = 19,
  // → model name, ← result (4).
  REQUEST_REMOVE_MODEL = 20,
  // → simulator name, → simulator settings.
  REQUEST_SEND_SIMULATOR_SETTING = 21,
  // → simulator name, ← simulator settings.
  REQUEST_RECEIVE_SIMULATOR_SETTING = 22,
  // → result-matrix row description.
  REQUEST_UPDATE_RESULT_MATRIX_INFO = 23,
  // ← reply (4); the first request of a registration.
  REQUEST_INITIALIZE = 24,
  // ← string.
  REQUEST_RECEIVE_ERROR_MESSAGE = 25,
  // → speed (4, unsigned).
  REQUEST_CHANGE_SIMULATOR_SPEED = 26,
  // → array of 8-byte positions.
  REQUEST_SEND_STEERED_PARAM_POSITIONS = 27,
  // → array of 8-byte positions.
  REQUEST_SEND_STEERED_PLACE_POSITIONS = 28,
  // ← count (8), ← count positions as one frame.
  REQUEST_RECEIVE_STEERED_PARAM_POSITIONS = 29,
  // ← count (8), ← count positions as one frame.
  REQUEST_RECEIVE_STEERED_PLACE_POSITIONS = 30,
  // nothing.
  REQUEST_RESET_PARAMETER_VALUES = 31,
  // nothing.
  REQUEST_RESET_MARKING_VALUES = 32,
  // ← string.
  REQUEST_READ_LOG_MESSAGE = 33,
  // → string, → string.
  REQUEST_WRITE_CURRENT_SIMULATOR_NAME = 34,
  // → simulator state (4).
  REQUEST_WRITE_SIMULATOR_STATE = 35,
  // → model statistics.
  REQUEST_WRITE_MODEL_STATISTICS = 36
};

// The simulator commands, sent as 4 bytes after REQUEST_SEND_CMD.
enum CMD_TYPE : int {
  CMD_PAUSE = 1,
  CMD_RESUME = 2,
  CMD_START = 3,
  CMD_STOP = 4,
  CMD_RESTART = 5
};

// Chosen by a client when it registers, sent as 4 bytes.
enum STEERING_OPTION : int {
  // The client uploads a model of its own.
  STEERING_NEW_MODEL = 1,
  // The client attaches to a model that the server already runs.
  STEERING_EXISTING_MODEL = 2
};

// One category of simulators. On the wire: the name (string frame), the id
// (4 bytes, carried as it is) and the simulator names (list of strings).
struct QUOR_API QU_SimulatorCategory {
  wxString m_sCategoryName;
  int m_nCategoryId = 0;
  std::vector<wxString> m_asSimulatorNames;
};

class QUOR_API SteeringControl : public SteeringVector {
 public:
  explicit SteeringControl(wxSocketBase* p_pcSocket);
  ~SteeringControl() override;

  // Output start point, output end point and sampling size as one 24-byte
  // value frame. Returns the frame's result (FAILURE when the block cannot be
  // allocated).
  unsigned int SendSimulationInterval(const double& p_dStart, const double& p_dEnd,
                                      const double& p_dSampling);
  // The mirror: 1 with the three outputs set, or FAILURE whatever went wrong
  // (the outputs are then untouched).
  unsigned int ReceiveSimulationInterval(double& p_dStart, double& p_dEnd,
                                         double& p_dSampling);

  // The count (4 bytes), then per category its name, id and simulator names.
  // The results of the frames are not examined: both return 1.
  unsigned int SendAvailableSimulators(const std::vector<QU_SimulatorCategory>& p_aList);
  // Resizes the list to the received count and fills each element in place.
  unsigned int ReceiveAvailableSimulators(std::vector<QU_SimulatorCategory>& p_aList);

  // The runtime state's attribute list, over this object's connection (the
  // state keeps the connection pointer afterwards).
  unsigned int SendModelStatistics(ModelRuntimeState& p_cState);
  unsigned int ReceiveModelStatistics(ModelRuntimeState& p_cState);

  // The whole model (its type first). FAILURE for a NULL model.
  unsigned int _SendExistingModel(Model* p_pcModel);
  // Reads the model type and builds a ColoredModel (type 1) or a Model (any
  // other type) on the given connection, which then receives itself. Returns
  // the new model, owned by the caller, or NULL when the type or the model
  // could not be received (a half-received model is deleted here).
  Model* _ReceiveExistingModel(wxSocketBase* p_pcSocket);
};

}  // namespace quor

#endif  // QUOR_STEERINGCONTROL_H
