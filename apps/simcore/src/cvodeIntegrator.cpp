// SPDX-License-Identifier: MIT
#include "cvodeIntegrator.h"

#include <cvode/cvode.h>
#include <nvector/nvector_serial.h>
#include <sundials/sundials_context.h>
#include <sunlinsol/sunlinsol_dense.h>
#include <sunlinsol/sunlinsol_klu.h>
#include <sunlinsol/sunlinsol_spgmr.h>
#include <sunmatrix/sunmatrix_dense.h>
#include <sunmatrix/sunmatrix_sparse.h>
#include <sunnonlinsol/sunnonlinsol_fixedpoint.h>

#include <klu.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "simcore/textNumbers.h"

namespace quor {
namespace sim {

// Everything CVODE allocates, freed in the reverse order.
struct CvodeIntegrator::Handles {
  SUNContext context = nullptr;
  void* memory = nullptr;
  N_Vector state = nullptr;
  SUNMatrix matrix = nullptr;
  SUNLinearSolver linearSolver = nullptr;
  SUNNonlinearSolver nonlinearSolver = nullptr;
  std::vector<double> values;  // the Jacobian's entries, in the simulator's order

  ~Handles() {
    if (memory) CVodeFree(&memory);
    if (linearSolver) SUNLinSolFree(linearSolver);
    if (matrix) SUNMatDestroy(matrix);
    if (nonlinearSolver) SUNNonlinSolFree(nonlinearSolver);
    if (state) N_VDestroy(state);
    if (context) SUNContext_Free(&context);
  }
};

namespace {

void SetError(std::string* p_psError, const std::string& p_sMessage) {
  if (p_psError) *p_psError = p_sMessage;
}

}  // namespace

CvodeIntegrator::CvodeIntegrator(const OdeSimulator& p_rSystem, const Options& p_rOptions)
    : m_rSystem(p_rSystem), m_cOptions(p_rOptions), m_pcHandles(new Handles) {}

CvodeIntegrator::~CvodeIntegrator() = default;

std::unique_ptr<CvodeIntegrator> CvodeIntegrator::Create(const OdeSimulator& p_rSystem,
                                                         const Options& p_rOptions, double p_dTime,
                                                         const std::vector<double>& p_rdState,
                                                         std::string* p_psError) {
  std::unique_ptr<CvodeIntegrator> l_pcIntegrator(new CvodeIntegrator(p_rSystem, p_rOptions));
  if (!l_pcIntegrator->SetUp(p_dTime, p_rdState, p_psError)) return nullptr;
  return l_pcIntegrator;
}

bool CvodeIntegrator::SetUp(double p_dTime, const std::vector<double>& p_rdState,
                            std::string* p_psError) {
  Handles& h = *m_pcHandles;
  const sunindextype n = static_cast<sunindextype>(p_rdState.size());
  auto l_fFail = [&](const char* p_sWhat) {
    SetError(p_psError, std::string("CVODE cannot be set up: ") + p_sWhat +
                            (m_sMessage.empty() ? std::string() : " (" + m_sMessage + ")"));
    return false;
  };
  if (SUNContext_Create(nullptr, &h.context) != 0) return l_fFail("no context");
  h.state = N_VNew_Serial(n, h.context);
  if (!h.state) return l_fFail("no state vector");
  std::copy(p_rdState.begin(), p_rdState.end(), N_VGetArrayPointer(h.state));
  const bool l_bBdf = m_cOptions.method == OdeSimulator::Method::BDF;
  h.memory = CVodeCreate(l_bBdf ? CV_BDF : CV_ADAMS, h.context);
  if (!h.memory) return l_fFail("no memory");
  CVodeSetErrHandlerFn(
      h.memory,
      [](int p_nCode, const char*, const char*, char* p_sMessage, void* p_pData) {
        // Warnings (repeated "t + h = t") are not failures.
        if (p_nCode < 0 && p_sMessage) static_cast<CvodeIntegrator*>(p_pData)->m_sMessage = p_sMessage;
      },
      this);
  // A rate function that fails at a trial state is a recoverable error:
  // CVODE tries a smaller step, so that the run gets as far as the rates
  // allow and the time in the message lies close to where they stop
  // being usable. The abort flag is not.
  auto l_fRightHandSide = [](realtype p_dTime, N_Vector p_cY, N_Vector p_cDy, void* p_pData) {
    const CvodeIntegrator* l_pcSelf = static_cast<const CvodeIntegrator*>(p_pData);
    if (l_pcSelf->m_rSystem.RightHandSide(p_dTime, N_VGetArrayPointer(p_cY),
                                          N_VGetArrayPointer(p_cDy)))
      return 0;
    return l_pcSelf->m_rSystem.AbortSeen() ? -1 : 1;
  };
  if (CVodeInit(h.memory, l_fRightHandSide, p_dTime, h.state) != CV_SUCCESS)
    return l_fFail("CVodeInit failed");
  CVodeSetUserData(h.memory, this);
  CVodeSetMaxHnilWarns(h.memory, -1);
  if (l_bBdf) {
    const std::vector<std::size_t>& l_anRows = m_rSystem.JacobianRows();
    h.values.assign(l_anRows.size(), 0.0);
    if (m_cOptions.solver == OdeSimulator::LinearSolver::Iterative) {
      // Matrix-free: CVODE takes the Jacobian's products with vectors by
      // differences of the right-hand side.
      h.linearSolver = SUNLinSol_SPGMR(h.state, SUN_PREC_NONE, 0, h.context);
      if (!h.linearSolver || CVodeSetLinearSolver(h.memory, h.linearSolver, nullptr) != CV_SUCCESS)
        return l_fFail("no iterative linear solver");
      return ApplyOptions(p_psError);
    }
    if (m_cOptions.solver == OdeSimulator::LinearSolver::Sparse) {
      h.matrix = SUNSparseMatrix(n, n, static_cast<sunindextype>(l_anRows.size()), CSC_MAT, h.context);
      if (h.matrix) h.linearSolver = SUNLinSol_KLU(h.state, h.matrix, h.context);
    } else {
      h.matrix = SUNDenseMatrix(n, n, h.context);
      if (h.matrix) h.linearSolver = SUNLinSol_Dense(h.state, h.matrix, h.context);
    }
    if (!h.matrix || !h.linearSolver) return l_fFail("no linear solver");
    if (CVodeSetLinearSolver(h.memory, h.linearSolver, h.matrix) != CV_SUCCESS)
      return l_fFail("the linear solver was refused");
    auto l_fJacobian = [](realtype p_dTime, N_Vector p_cY, N_Vector, SUNMatrix p_cJ, void* p_pData,
                          N_Vector, N_Vector, N_Vector) -> int {
      CvodeIntegrator* l_pcSelf = static_cast<CvodeIntegrator*>(p_pData);
      Handles& l_rHandles = *l_pcSelf->m_pcHandles;
      if (!l_pcSelf->m_rSystem.Jacobian(p_dTime, N_VGetArrayPointer(p_cY), l_rHandles.values.data()))
        return l_pcSelf->m_rSystem.AbortSeen() ? -1 : 1;
      const std::vector<std::size_t>& l_anColumns = l_pcSelf->m_rSystem.JacobianColumnStarts();
      const std::vector<std::size_t>& l_anEntries = l_pcSelf->m_rSystem.JacobianRows();
      const std::size_t l_nColumns = l_anColumns.size() - 1;
      if (SUNMatGetID(p_cJ) == SUNMATRIX_SPARSE) {
        sunindextype* l_pnStarts = SUNSparseMatrix_IndexPointers(p_cJ);
        sunindextype* l_pnRows = SUNSparseMatrix_IndexValues(p_cJ);
        for (std::size_t c = 0; c <= l_nColumns; ++c)
          l_pnStarts[c] = static_cast<sunindextype>(l_anColumns[c]);
        for (std::size_t e = 0; e < l_anEntries.size(); ++e)
          l_pnRows[e] = static_cast<sunindextype>(l_anEntries[e]);
        std::copy(l_rHandles.values.begin(), l_rHandles.values.end(), SUNSparseMatrix_Data(p_cJ));
      } else {
        SUNMatZero(p_cJ);
        for (std::size_t c = 0; c < l_nColumns; ++c) {
          realtype* l_pdColumn = SUNDenseMatrix_Column(p_cJ, static_cast<sunindextype>(c));
          for (std::size_t e = l_anColumns[c]; e < l_anColumns[c + 1]; ++e)
            l_pdColumn[l_anEntries[e]] = l_rHandles.values[e];
        }
      }
      return 0;
    };
    if (CVodeSetJacFn(h.memory, l_fJacobian) != CV_SUCCESS) return l_fFail("no Jacobian");
  } else {
    h.nonlinearSolver = SUNNonlinSol_FixedPoint(h.state, 0, h.context);
    if (!h.nonlinearSolver || CVodeSetNonlinearSolver(h.memory, h.nonlinearSolver) != CV_SUCCESS)
      return l_fFail("no fixed-point iteration");
  }
  return ApplyOptions(p_psError);
}

bool CvodeIntegrator::ApplyOptions(std::string* p_psError) {
  Handles& h = *m_pcHandles;
  if (CVodeSStolerances(h.memory, m_cOptions.relTol, m_cOptions.absTol) != CV_SUCCESS ||
      CVodeSetMaxStep(h.memory, m_cOptions.maxStep) != CV_SUCCESS ||
      CVodeSetMaxNumSteps(h.memory, static_cast<long>(m_cOptions.stepLimit)) != CV_SUCCESS) {
    SetError(p_psError, "CVODE refused the settings (" + m_sMessage + ")");
    return false;
  }
  return true;
}

bool CvodeIntegrator::Restart(const Options& p_rOptions, double p_dTime,
                              const std::vector<double>& p_rdState, std::string* p_psError) {
  Handles& h = *m_pcHandles;
  m_cOptions = p_rOptions;
  std::copy(p_rdState.begin(), p_rdState.end(), N_VGetArrayPointer(h.state));
  if (CVodeReInit(h.memory, p_dTime, h.state) != CV_SUCCESS) {
    SetError(p_psError, "CVODE cannot start over (" + m_sMessage + ")");
    return false;
  }
  return ApplyOptions(p_psError);
}

std::string CvodeIntegrator::Describe(int p_nFlag, double p_dFrom, double p_dTo) const {
  const bool l_bBdf = m_cOptions.method == OdeSimulator::Method::BDF;
  std::string l_sText;
  switch (p_nFlag) {
    case CV_TOO_MUCH_WORK:
      l_sText = "too much work: more than " + std::to_string(m_cOptions.stepLimit) +
                " internal steps between t = " + FormatDouble(p_dFrom) + " and t = " +
                FormatDouble(p_dTo) +
                " (the marking may grow without bound there; if not, raise the setting "
                "StepLimit or loosen the tolerances" +
                (l_bBdf ? std::string(")") : std::string(", or take the method BDF if the net is stiff)"));
      break;
    case CV_TOO_MUCH_ACC:
      l_sText = "the tolerances ask for more accuracy than the arithmetic can give (loosen them)";
      break;
    case CV_ERR_FAILURE:
      l_sText = "the error test failed repeatedly or at the smallest step size";
      break;
    case CV_CONV_FAILURE:
      l_sText = std::string("the ") + (l_bBdf ? "Newton" : "fixed-point") +
                " iteration failed to converge repeatedly or at the smallest step size" +
                (l_bBdf ? "" : " (the net may be stiff: take the method BDF)");
      break;
    case CV_LSETUP_FAIL:
    case CV_LSOLVE_FAIL:
      l_sText = "the linear solver failed";
      break;
    default:
      l_sText = "CVODE failed (code " + std::to_string(p_nFlag) + ")";
      break;
  }
  if (!m_sMessage.empty()) l_sText += "; CVODE says: " + m_sMessage;
  return l_sText;
}

CvodeIntegrator::Outcome CvodeIntegrator::Advance(double p_dTime, double& p_rdTime,
                                                  std::vector<double>& p_rdState,
                                                  std::string* p_psError) {
  Handles& h = *m_pcHandles;
  m_sMessage.clear();
  const double l_dFrom = p_rdTime;
  realtype l_dReached = p_rdTime;
  // CVODE steps past the output time and interpolates the state there
  // (forcing steps to end on every output time would cost a new
  // factorization of the iteration matrix at almost every one). Steps
  // below the resolution of time are refused: where the rates fail just
  // ahead, CVODE would otherwise creep on with steps that do not move time.
  CVodeSetMinStep(h.memory, 8.0 * std::numeric_limits<double>::epsilon() *
                                std::max(std::fabs(l_dFrom), std::fabs(p_dTime)));
  const int l_nFlag = CVode(h.memory, p_dTime, h.state, &l_dReached, CV_NORMAL);
  const double* l_pdState = N_VGetArrayPointer(h.state);
  if (l_nFlag >= 0) {
    p_rdTime = p_dTime;
    std::copy(l_pdState, l_pdState + p_rdState.size(), p_rdState.begin());
    return Outcome::Reached;
  }
  // The last state CVODE reached, where a new start can pick up.
  realtype l_dCurrent = l_dFrom;
  if (CVodeGetCurrentTime(h.memory, &l_dCurrent) == CV_SUCCESS && l_dCurrent >= l_dFrom &&
      l_dCurrent <= p_dTime && CVodeGetDky(h.memory, l_dCurrent, 0, h.state) == CV_SUCCESS) {
    p_rdTime = l_dCurrent;
    std::copy(l_pdState, l_pdState + p_rdState.size(), p_rdState.begin());
  }
  if (m_rSystem.AbortSeen()) return Outcome::Aborted;
  // A rate function that failed at the last evaluation is why the step
  // failed, whatever failure CVODE reports for it (the fixed-point
  // iteration calls it one of convergence).
  if (!m_rSystem.LastRateError().empty()) {
    SetError(p_psError, m_rSystem.LastRateError());
    return Outcome::Failed;
  }
  SetError(p_psError, Describe(l_nFlag, l_dFrom, p_dTime));
  return Outcome::Failed;
}

double CvodeIntegrator::SparseFill(const std::vector<std::size_t>& p_anColumnStarts,
                                   const std::vector<std::size_t>& p_anRows) {
  const std::size_t n = p_anColumnStarts.empty() ? 0 : p_anColumnStarts.size() - 1;
  std::vector<SuiteSparse_long> l_anStarts(p_anColumnStarts.begin(), p_anColumnStarts.end());
  std::vector<SuiteSparse_long> l_anRows(p_anRows.begin(), p_anRows.end());
  klu_l_common l_cCommon;
  klu_l_defaults(&l_cCommon);
  klu_l_symbolic* l_pcSymbolic = klu_l_analyze(static_cast<SuiteSparse_long>(n), l_anStarts.data(),
                                               l_anRows.data(), &l_cCommon);
  if (!l_pcSymbolic) return std::numeric_limits<double>::infinity();
  const double l_dFill = l_pcSymbolic->lnz + l_pcSymbolic->unz;
  klu_l_free_symbolic(&l_pcSymbolic, &l_cCommon);
  return l_dFill;
}

unsigned long long CvodeIntegrator::Steps() const {
  long l_nSteps = 0;
  CVodeGetNumSteps(m_pcHandles->memory, &l_nSteps);
  return static_cast<unsigned long long>(l_nSteps);
}

unsigned long long CvodeIntegrator::ErrorTestFailures() const {
  long l_nFailures = 0;
  CVodeGetNumErrTestFails(m_pcHandles->memory, &l_nFailures);
  return static_cast<unsigned long long>(l_nFailures);
}

}  // namespace sim
}  // namespace quor
