// SPDX-License-Identifier: MIT
// Rate functions: a transition's rate written as an expression over the
// markings of places, the values of parameters and the time t, compiled
// with muParser.
//
// Syntax (what the README's "Rate functions" section documents):
// - numbers (1, 0.5, 1e-3), + - * / ^ (power), parentheses, comparisons
//   (< <= > >= == !=), && ||, and the conditional c ? a : b;
// - a place's name stands for its marking, a parameter's name for its
//   current value, t for the time;
// - a name that is not a plain identifier (letters, digits, _, not starting
//   with a digit) or that is taken by the syntax (t, a function or constant
//   name) is written in brackets: [S 1], [Ca2+], [t], [exp];
// - functions: muParser's own (exp, log = ln, log10, log2, sqrt, abs, min,
//   max, sum, avg, sign, rint, sin, cos, tan, asin, acos, atan, atan2,
//   sinh, cosh, tanh, asinh, acosh, atanh) and pow(x, y), floor, ceil,
//   mm(S, Vmax, Km) = Vmax S / (Km + S),
//   hill(S, Vmax, K, n) = Vmax S^n / (K^n + S^n);
// - constants _pi and _e.
// A name that is both a place and a parameter, or that several places
// carry, cannot be used (the function is refused).
//
// Markings below 0 (numerical noise of an integrator) are read as 0.
#ifndef QUOR_SIMCORE_RATEFUNCTION_H
#define QUOR_SIMCORE_RATEFUNCTION_H

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "simcore/net.h"

namespace quor {
namespace sim {

// The places and parameters of a net by name, looked up by every function
// of that net (built once, so that compiling a net's functions costs time
// in proportion to their length, not to the size of the net).
class RateSymbols {
 public:
  explicit RateSymbols(const Net& p_rNet);
  ~RateSymbols();
  RateSymbols(const RateSymbols&) = delete;
  RateSymbols& operator=(const RateSymbols&) = delete;

 private:
  friend class RateFunction;
  struct Table;
  std::unique_ptr<Table> m_pcTable;
};

class RateFunction {
 public:
  ~RateFunction();
  RateFunction(const RateFunction&) = delete;
  RateFunction& operator=(const RateFunction&) = delete;

  // Compiles p_sText; nullptr with the reason in *p_psError (a syntax
  // error with its position, an unknown or ambiguous name, an empty text).
  static std::unique_ptr<RateFunction> Compile(const std::string& p_sText,
                                               const RateSymbols& p_rSymbols,
                                               std::string* p_psError = nullptr);

  // The value for the marking p_pdMarking (one value per place of the
  // net), the parameter values p_pdParameters (one per parameter) and the
  // time p_dTime. Not thread-safe: one object is evaluated by one thread.
  double Evaluate(const double* p_pdMarking, const double* p_pdParameters, double p_dTime) const;

  const std::string& Text() const { return m_sText; }
  // What the value depends on: positions of places and parameters (each
  // once, ascending), and whether it reads the time.
  const std::vector<std::size_t>& Places() const { return m_anPlaces; }
  const std::vector<std::size_t>& Parameters() const { return m_anParameters; }
  bool UsesTime() const { return m_bUsesTime; }

 private:
  RateFunction();
  struct Impl;
  std::unique_ptr<Impl> m_pcImpl;
  std::string m_sText;
  std::vector<std::size_t> m_anPlaces;
  std::vector<std::size_t> m_anParameters;
  bool m_bUsesTime = false;
};

// The function of p_rTransition (a RateKind::Function) compiled; nullptr
// with "transition '...': <problem> in the rate function '<text>'" in
// *p_psError.
std::unique_ptr<RateFunction> CompileTransitionRate(const Transition& p_rTransition,
                                                    const RateSymbols& p_rSymbols,
                                                    std::string* p_psError);

// True when p_sName can stand bare in a rate function (a plain identifier
// not taken by the syntax).
bool IsPlainName(const std::string& p_sName);
// p_sName as written in a rate function: bare when plain, else in brackets.
// REQUIRES: p_sName contains no ']'.
std::string WriteName(const std::string& p_sName);

}  // namespace sim
}  // namespace quor

#endif  // QUOR_SIMCORE_RATEFUNCTION_H
