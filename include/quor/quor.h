// Umbrella header: every public header of libQUOR_SteeringAPI.
#ifndef QUOR_QUOR_H
#define QUOR_QUOR_H

#include "quor/utilities.h"
#include "quor/coding.h"
#include "quor/steeringcommunicator.h"
#include "quor/steeringBase.h"

#endif  // QUOR_QUOR_H
