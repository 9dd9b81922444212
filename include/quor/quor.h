// SPDX-License-Identifier: MIT
// Umbrella header: every public header of libQUOR_SteeringAPI.
#ifndef QUOR_QUOR_H
#define QUOR_QUOR_H

#include "quor/version.h"
#include "quor/utilities.h"
#include "quor/coding.h"
#include "quor/netTypes.h"
#include "quor/keys.h"
#include "quor/simulatorState.h"
#include "quor/steeringcommunicator.h"
#include "quor/steeringBase.h"
#include "quor/attribute.h"
#include "quor/attributeVector.h"
#include "quor/attributeStruct.h"
#include "quor/attributeVectorAttribute.h"
#include "quor/attributeTransitionConnection.h"
#include "quor/steeringvector.h"
#include "quor/modelView.h"
#include "quor/model.h"
#include "quor/coloredmodel.h"
#include "quor/simulatorattribute.h"
#include "quor/resultMatrixInfo.h"
#include "quor/modelruntimestate.h"
#include "quor/steeringcontrol.h"
#include "quor/steeringcmd.h"
#include "quor/steeringdeadline.h"
#include "quor/steeringvaluecodec.h"
#include "quor/steeringserver.h"
#include "quor/steeringclient.h"
#include "quor/steeringmodelstore.h"
#include "quor/steeringhandler.h"
#include "quor/steeringdispatcher.h"
#include "quor/steeringrunner.h"
#include "quor/steeringrunhandler.h"

#endif  // QUOR_QUOR_H
