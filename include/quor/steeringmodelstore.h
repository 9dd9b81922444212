// SPDX-License-Identifier: MIT
// What a steerable simulation shows its clients: the running models and,
// per model, its results and state; the simulators on offer and their
// settings; and which model each connection works on.
//
// The store is shared by the simulation (which feeds results) and by every
// connection's worker thread (which serves requests from it). Every
// operation locks the store for its own duration: what goes in is copied in
// (or moved), what comes out is a copy, or a snapshot that nobody changes.
// WithModel and WithRuntimeState run a caller's function under the lock
// instead; such a function must be short and must not call back into the
// store.
//
// Snapshots: models and the result and rate matrices are kept as shared,
// never changed objects. Handing one out (ShareModel, ShareResultMatrix)
// costs no copy; a change (WithModel, AppendOutputPoint) works in place while
// nobody holds a snapshot of the object, and otherwise on a copy, made
// outside the lock, that then replaces it: a snapshot never changes under
// its reader. A simulation that publishes at every output point appends the
// point's column (AppendOutputPoint) instead of setting the whole matrix.
//
// A model is addressed by the id that AddModel returned. Ids are not reused
// and stay valid when other models are removed. The index that clients send
// is the model's position among the running models (the order of
// GetModelNames), which does shift when a model before it is removed.
// Operations on an id that names no model do nothing and read as empty (an
// empty matrix, 0, an empty text, a default runtime state).
//
// Limits: what clients upload and send is kept within bounds that a peer
// cannot push past: at most GetMaxUploadedModels() uploaded models, at most
// MAX_SIMULATOR_SETTINGS simulator names with settings, MAX_QUEUED_REFUSALS
// refusals per connection; an uploaded model's counts must be backed by the
// lists it carries.
#ifndef QUOR_STEERINGMODELSTORE_H
#define QUOR_STEERINGMODELSTORE_H

#include <wx/string.h>
#include <wx/thread.h>

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <vector>

#include "quor/export.h"
#include "quor/steeringcontrol.h"
#include "quor/steeringvaluecodec.h"

namespace quor {

class Model;
class ModelRuntimeState;
class ResultMatrixInfo;
class SimulatorAttribute;

class QUOR_API SteeringModelStore {
 public:
  // The id of no model.
  static constexpr int NO_MODEL = -1;

  SteeringModelStore();
  ~SteeringModelStore();

  // Running models.
  //
  // Takes ownership of the model (allocated with new) and runs it as the
  // last one, detached (a stored model belongs to no connection). Returns
  // its id (NO_MODEL for NULL).
  int AddModel(Model* p_pcModel);
  // The same for a model that a client uploaded; such a model is refused
  // (deleted, NO_MODEL returned, the reason in *p_psRefusal when given)
  // when GetMaxUploadedModels() uploaded models run already, or when a
  // count it announces (PLACE_COUNT, TRANSITION_COUNT) exceeds every list
  // it carries for those nodes.
  int AddUploadedModel(Model* p_pcModel, wxString* p_psRefusal = NULL);
  // The most uploaded models that run at the same time.
  static constexpr size_t DEFAULT_MAX_UPLOADED_MODELS = 64;
  void SetMaxUploadedModels(size_t p_nModels);
  size_t GetMaxUploadedModels();
  // Removes the first running model of that name (connections working on
  // it are left without a current model). False when there is none.
  bool RemoveModel(const wxString& p_sName);
  // The names of the running models, in index order.
  std::vector<wxString> GetModelNames();
  // The id of the model at that index, or NO_MODEL.
  int GetModelId(int p_nIndex);
  // The model as it is now, shared and never changed (no copy is made);
  // NULL when there is no such model. It stays valid, and unchanged, for as
  // long as the caller holds it.
  ModelSnapshot ShareModel(int p_nId);
  // A deep copy of the model (class, attributes, views; not the name maps),
  // on no socket, owned by the caller; NULL when there is no such model.
  // The copy is made outside the lock.
  Model* CopyModel(int p_nId);
  // Runs the function on the stored model under the lock. False (and the
  // function not called) when there is no such model. Snapshots handed out
  // before do not see the change.
  bool WithModel(int p_nId, const std::function<void(Model&)>& p_fAction);
  // Runs a function that only reads the stored model under the lock,
  // without the copy a change may cost; other threads may read the same
  // model meanwhile, so the function looks attributes up with FindAttribute
  // or FindValue (which never insert). False when there is no such model.
  bool ReadModel(int p_nId, const std::function<void(Model&)>& p_fAction);
  // Clears the socket of a model and of its views.
  static void Detach(Model& p_cModel);

  // The current model of each connection.
  void SetCurrentModel(unsigned int p_nConnection, int p_nId);
  // NO_MODEL before the connection chose one, or after it was removed.
  int GetCurrentModel(unsigned int p_nConnection);
  // Forgets the connection's current model and its queued refusals.
  void ForgetConnection(unsigned int p_nConnection);

  // Refusals: what the server refused a connection, kept for that
  // connection until it reads them (ReceiveErrorMessage), oldest first.
  // At most MAX_QUEUED_REFUSALS are kept (the oldest go first), each cut to
  // MAX_REFUSAL_LENGTH characters, so that a client that never reads costs
  // a bounded amount.
  static constexpr size_t MAX_QUEUED_REFUSALS = 64;
  static constexpr size_t MAX_REFUSAL_LENGTH = 1024;
  void AddRefusal(unsigned int p_nConnection, const wxString& p_sText);
  // The connection's refusals, oldest first; the queue is empty afterwards.
  std::vector<wxString> TakeRefusals(unsigned int p_nConnection);

  // Values kept in the model itself: the current parameter values, the
  // current marking and the output interval (start, end, sampling).
  std::vector<double> GetParameterValues(int p_nId);
  std::vector<double> GetMarking(int p_nId);
  void SetSimulationInterval(int p_nId, double p_dStart, double p_dEnd, double p_dSampling);
  // The outputs are left as they are when there is no such model.
  void GetSimulationInterval(int p_nId, double& p_dStart, double& p_dEnd, double& p_dSampling);
  // The stored model's views replace those of p_cTarget (CopyViews) or are
  // replaced by copies of p_cSource's (SetViews); the active view goes with
  // them.
  void CopyViews(int p_nId, Model& p_cTarget);
  void SetViews(int p_nId, Model& p_cSource);

  // Results and state that the simulation feeds. A matrix is row by row:
  // one row per place (or transition), one column per output point.
  void SetResultMatrix(int p_nId, const SteeringMatrix& p_aadMatrix);
  void SetResultMatrix(int p_nId, SteeringMatrix&& p_aadMatrix);
  // A copy (made outside the lock).
  SteeringMatrix GetResultMatrix(int p_nId);
  // The matrix as it is now, shared and never changed (no copy is made);
  // an empty matrix when there is no such model.
  SteeringMatrixSnapshot ShareResultMatrix(int p_nId);
  void SetRateMatrix(int p_nId, const SteeringMatrix& p_aadMatrix);
  void SetRateMatrix(int p_nId, SteeringMatrix&& p_aadMatrix);
  SteeringMatrix GetRateMatrix(int p_nId);
  SteeringMatrixSnapshot ShareRateMatrix(int p_nId);
  // Appends one output point: p_adResults as the next column of the result
  // matrix and, unless it is empty, p_adRates as the next column of the
  // rate matrix. A matrix without rows gets one row per value; otherwise a
  // column must have one value per row. False, and nothing changed, when
  // there is no such model or a column does not fit. Costs one value per
  // row (and no copy while nobody holds a snapshot of the matrix).
  bool AppendOutputPoint(int p_nId, const std::vector<double>& p_adResults,
                         const std::vector<double>& p_adRates);
  void SetResultMatrixInfo(int p_nId, ResultMatrixInfo& p_cInfo);
  void GetResultMatrixInfo(int p_nId, ResultMatrixInfo& p_cInfo);
  // The runtime state of the model; its "SIMULATOR_STATE" is the simulator
  // state that clients read and write on their own as well.
  void SetRuntimeState(int p_nId, ModelRuntimeState& p_cState);
  void GetRuntimeState(int p_nId, ModelRuntimeState& p_cState);
  bool WithRuntimeState(int p_nId, const std::function<void(ModelRuntimeState&)>& p_fAction);
  void SetSimulatorState(int p_nId, int p_nState);
  int GetSimulatorState(int p_nId);
  void SetCurrentSimulatorName(int p_nId, const wxString& p_sFirst, const wxString& p_sSecond);
  void GetCurrentSimulatorName(int p_nId, wxString& p_sFirst, wxString& p_sSecond);
  void SetErrorMessage(int p_nId, const wxString& p_sMessage);
  wxString GetErrorMessage(int p_nId);
  void SetLogMessage(int p_nId, const wxString& p_sMessage);
  wxString GetLogMessage(int p_nId);

  // The simulators on offer and the settings of each, by simulator name.
  void SetAvailableSimulators(const std::vector<QU_SimulatorCategory>& p_aList);
  std::vector<QU_SimulatorCategory> GetAvailableSimulators();
  // Settings are kept for at most this many simulator names.
  static constexpr size_t MAX_SIMULATOR_SETTINGS = 256;
  // Keeps a copy of the settings under the name. False (nothing kept) for
  // a new name when MAX_SIMULATOR_SETTINGS names have settings already.
  bool SetSimulatorSettings(const wxString& p_sSimulator, SimulatorAttribute& p_cSettings);
  // Replaces p_cSettings by a copy of the stored settings; false (and
  // p_cSettings left alone) when there are none for that name.
  bool GetSimulatorSettings(const wxString& p_sSimulator, SimulatorAttribute& p_cSettings);

 private:
  struct Entry;

  int Add(Model* p_pcModel, bool p_bUploaded, wxString* p_psRefusal);
  // The entry of the id, or NULL. REQUIRES: m_cMutex is held.
  Entry* Find(int p_nId);
  // Runs the function on the entry under the lock; false without one.
  bool WithEntry(int p_nId, const std::function<void(Entry&)>& p_fAction);
  template <typename T>
  void Put(int p_nId, T Entry::*p_pField, const T& p_Value);
  template <typename T>
  T Take(int p_nId, T Entry::*p_pField);
  // Changes one of an entry's shared objects (see "Snapshots"): the
  // function runs under the lock, on an object that no snapshot holds.
  // False (the function not called) when there is no such entry, or when
  // the function returns false.
  template <typename T>
  bool Change(int p_nId, std::shared_ptr<T> Entry::*p_pField,
              const std::function<bool(T&)>& p_fChange);
  template <typename T>
  std::shared_ptr<const T> Share(int p_nId, std::shared_ptr<T> Entry::*p_pField);
  template <typename M>
  void Replace(int p_nId, std::shared_ptr<SteeringMatrix> Entry::*p_pField, M&& p_aadMatrix);

  wxMutex m_cMutex;
  int m_nNextId;
  size_t m_nMaxUploadedModels;
  std::vector<std::unique_ptr<Entry> > m_apcModels;
  std::map<unsigned int, int> m_mCurrentModel;
  std::map<unsigned int, std::deque<wxString> > m_mRefusals;
  std::vector<QU_SimulatorCategory> m_aSimulators;
  std::map<wxString, std::unique_ptr<SimulatorAttribute> > m_mSettings;

  SteeringModelStore(const SteeringModelStore&) = delete;
  SteeringModelStore& operator=(const SteeringModelStore&) = delete;
};

}  // namespace quor

#endif  // QUOR_STEERINGMODELSTORE_H
