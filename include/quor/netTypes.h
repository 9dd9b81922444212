// SPDX-License-Identifier: MIT
// Codes that the library stores and transfers as 32-bit integers without
// interpreting them; the values below are this library's vocabulary, shared
// by its reference simulation server and clients.
#ifndef QUOR_NETTYPES_H
#define QUOR_NETTYPES_H

namespace quor {

// The kind of an arc between a place and a transition. Post-arcs made by
// Model always carry CONNECTION_STANDARD_ARC (2).
enum ConnectionType : int {
  CONNECTION_NONE = 0,           // no arc / unspecified
  CONNECTION_READ_ARC = 1,       // test arc: enables, consumes nothing
  CONNECTION_STANDARD_ARC = 2,   // ordinary arc: consumes or produces its weight
  CONNECTION_INHIBITOR_ARC = 3,  // enables only below its weight
  CONNECTION_RESET_ARC = 4,      // empties the place when the transition fires
  CONNECTION_EQUAL_ARC = 5,      // enables only at exactly its weight
  CONNECTION_MODIFIER_ARC = 6    // influences the rate only
};

// The kind of a place.
enum PlaceType : int {
  PLACE_DISCRETE = 0,   // integer tokens
  PLACE_CONTINUOUS = 1  // real-valued amount
};

// The kind of a transition.
enum TransType : int {
  TRANSITION_STOCHASTIC = 0,     // exponentially distributed delay
  TRANSITION_CONTINUOUS = 1,     // continuous flow (ODE)
  TRANSITION_IMMEDIATE = 2,      // fires without delay
  TRANSITION_DETERMINISTIC = 3,  // fixed delay
  TRANSITION_SCHEDULED = 4       // fires at scheduled times
};

// What a row of a result matrix (and a curve of a view) stands for.
enum RM_ROW_TYPE : int {
  RM_ROW_TYPE_PLACE = 0,       // the marking of a place
  RM_ROW_TYPE_TRANSITION = 1,  // the rate of a transition
  RM_ROW_TYPE_PARAMETER = 2,   // the value of a parameter
  RM_ROW_TYPE_OBSERVER = 3     // a derived quantity
};

}  // namespace quor

#endif  // QUOR_NETTYPES_H
