// SPDX-License-Identifier: MIT
// The attribute keys of the library's data classes, named once.
//
// Models, coloured models, views, curves, simulator settings and the
// runtime state keep their values under these keys; both peers build the
// same schema from them. Look a key up with SteeringVector::FindAttribute
// (which never inserts) rather than with the typed accessors, which leave
// an empty entry behind for a key that is not there.
//
// The texts are part of the protocol's vocabulary and are kept exactly,
// spelling included ("LEGEND_VERTICAl_POSITION").
#ifndef QUOR_KEYS_H
#define QUOR_KEYS_H

#include <wx/defs.h>

namespace quor {
namespace keys {

// Model.
inline constexpr const wxChar* MODEL_TYPE = wxT("MODEL_TYPE");
inline constexpr const wxChar* MODEL_NAME = wxT("MODEL_NAME");
inline constexpr const wxChar* NET_TYPE = wxT("NET_TYPE");
inline constexpr const wxChar* PLACE_COUNT = wxT("PLACE_COUNT");
inline constexpr const wxChar* TRANSITION_COUNT = wxT("TRANSITION_COUNT");
inline constexpr const wxChar* PLACE_NAMES = wxT("PLACE_NAMES");
inline constexpr const wxChar* TRANSITION_NAMES = wxT("TRANSITION_NAMES");
inline constexpr const wxChar* TRANSITION_FUNCTIONS = wxT("TRANSITION_FUNCTIONS");
inline constexpr const wxChar* PARAMETER_NAMES = wxT("PARAMETER_NAMES");
inline constexpr const wxChar* PLACE_TYPES = wxT("PLACE_TYPES");
inline constexpr const wxChar* TRANSITION_TYPES = wxT("TRANSITION_TYPES");
inline constexpr const wxChar* TRANSITION_CONNECTION = wxT("TRANSITION_CONNECTION");
inline constexpr const wxChar* INITIAL_MARKING = wxT("INITIAL_MARKING");
inline constexpr const wxChar* CURRENT_MARKING = wxT("CURRENT_MARKING");
inline constexpr const wxChar* INITIAL_PARAM_VALUES = wxT("INITIAL_PARAM_VALUES");
inline constexpr const wxChar* CURRENT_PARAM_VALUES = wxT("CURRENT_PARAM_VALUES");
inline constexpr const wxChar* STEERED_PARAM = wxT("STEERED_PARAM");
inline constexpr const wxChar* STEERED_PLACES = wxT("STEERED_PLACES");
inline constexpr const wxChar* START_OUTPUT_POINT = wxT("START_OUTPUT_POINT");
inline constexpr const wxChar* END_OUTPUT_POINT = wxT("END_OUTPUT_POINT");
inline constexpr const wxChar* SAMPLE_POINT_SIZE = wxT("SAMPLE_POINT_SIZE");
inline constexpr const wxChar* CURRENT_ACTIVE_VIEW = wxT("CURRENT_ACTIVE_VIEW");

// Coloured model (in addition to the model's keys).
inline constexpr const wxChar* COLORED_PLACE_COUNT = wxT("COLORED_PLACE_COUNT");
inline constexpr const wxChar* COLORED_TRANSITION_COUNT = wxT("COLORED_TRANSITION_COUNT");
inline constexpr const wxChar* COLORED_PLACE_NAMES = wxT("COLORED_PLACE_NAMES");
inline constexpr const wxChar* COLORED_TRANSITION_NAMES = wxT("COLORED_TRANSITION_NAMES");
inline constexpr const wxChar* COLORED_PLACE_INFO = wxT("COLORED_PLACE_INFO");
inline constexpr const wxChar* COLORED_TRANSITION_INFO = wxT("COLORED_TRANSITION_INFO");

// View.
inline constexpr const wxChar* VIEW_NAME = wxT("VIEW_NAME");
inline constexpr const wxChar* VIEW_TITLE = wxT("VIEW_TITLE");
inline constexpr const wxChar* X_AXIS_LABEL = wxT("X_AXIS_LABEL");
inline constexpr const wxChar* Y_AXIS_LABEL = wxT("Y_AXIS_LABEL");
inline constexpr const wxChar* X_AXIS_VAR_TYPE = wxT("X_AXIS_VAR_TYPE");
inline constexpr const wxChar* X_AXIS_VAR_NAME = wxT("X_AXIS_VAR_NAME");
inline constexpr const wxChar* VIEWER_TYPE = wxT("VIEWER_TYPE");
inline constexpr const wxChar* VIEW_MATRIX_TYPE = wxT("VIEW_MATRIX_TYPE");
inline constexpr const wxChar* DEFAULT_LINE_WIDTH = wxT("DEFAULT_LINE_WIDTH");
inline constexpr const wxChar* DEFAULT_LINE_STYLE = wxT("DEFAULT_LINE_STYLE");
inline constexpr const wxChar* SHOW_LEGEND = wxT("SHOW_LEGEND");
inline constexpr const wxChar* LEGEND_HORIZONTAL_POSITION = wxT("LEGEND_HORIZONTAL_POSITION");
inline constexpr const wxChar* LEGEND_VERTICAl_POSITION = wxT("LEGEND_VERTICAl_POSITION");
inline constexpr const wxChar* FIXED_X_ADJUSTMENT = wxT("FIXED_X_ADJUSTMENT");
inline constexpr const wxChar* FIXED_Y_ADJUSTMENT = wxT("FIXED_Y_ADJUSTMENT");
inline constexpr const wxChar* MIN_X_VALUE = wxT("MIN_X_VALUE");
inline constexpr const wxChar* MAX_X_VALUE = wxT("MAX_X_VALUE");
inline constexpr const wxChar* MIN_Y_VALUE = wxT("MIN_Y_VALUE");
inline constexpr const wxChar* MAX_Y_VALUE = wxT("MAX_Y_VALUE");
inline constexpr const wxChar* SORT_CURVE_BY = wxT("SORT_CURVE_BY");
// The view's list of curve records, and the name of their prototype.
inline constexpr const wxChar* CURVE_INFO = wxT("CURVE_INFO");
inline constexpr const wxChar* CURVE_INFO_PROTOTYPE = wxT("CURVE_INFO_PROTOTYPE");

// Fields of a curve record.
inline constexpr const wxChar* CURVE_INDEX = wxT("INDEX");
inline constexpr const wxChar* CURVE_LINE_WIDTH = wxT("LINE_WIDTH");
inline constexpr const wxChar* CURVE_LINE_STYLE = wxT("LINE_STYLE");
inline constexpr const wxChar* CURVE_NAME = wxT("CURVE_NAME");
inline constexpr const wxChar* CURVE_COLOR_NAME = wxT("CURVE_COLOR_NAME");
inline constexpr const wxChar* CURVE_TYPE = wxT("CURVE_TYPE");
inline constexpr const wxChar* CURVE_SHOW = wxT("SHOW");

// Fields of a simulator setting record, and the name of their prototype.
inline constexpr const wxChar* SETTING_PROTOTYPE = wxT("PROTOTYPE");
inline constexpr const wxChar* SETTING_NAME = wxT("NAME");
inline constexpr const wxChar* SETTING_CAPTION = wxT("CAPTION");
inline constexpr const wxChar* SETTING_VALUE = wxT("VALUE");
inline constexpr const wxChar* SETTING_GUI_TYPE = wxT("GUI_TYPE");
inline constexpr const wxChar* SETTING_MIN_VALUE = wxT("MIN_VALUE");
inline constexpr const wxChar* SETTING_MAX_VALUE = wxT("MAX_VALUE");
inline constexpr const wxChar* SETTING_POSSIBLE_VALUES = wxT("POSSIBLE_VALUES");

// Runtime state.
inline constexpr const wxChar* SIMULATOR_STATE = wxT("SIMULATOR_STATE");
inline constexpr const wxChar* SIMULATOR_RUNTIME = wxT("SIMULATOR_RUNTIME");
inline constexpr const wxChar* SIMULATOR_PROGRESS = wxT("SIMULATOR_PROGRESS");
inline constexpr const wxChar* ERROR_STATE = wxT("ERROR_STATE");
inline constexpr const wxChar* SIMULATOR_CATEGORY = wxT("SIMULATOR_CATEGORY");
inline constexpr const wxChar* CURRENT_SIMULATOR_ALGORITHM = wxT("CURRENT_SIMULATOR_ALGORITHM");
inline constexpr const wxChar* SIMULATOR_SPEED = wxT("SIMULATOR_SPEED");

}  // namespace keys
}  // namespace quor

#endif  // QUOR_KEYS_H
