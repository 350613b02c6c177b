#pragma once

/// The small value classes in which the library and the application exchange data. None of them shows the
/// standard library's containers, so applications may be built with any C++ runtime settings.

#include "VantrelDictionary.h"
#include "VantrelNodeEvent.h"
#include "VantrelNodeId.h"
#include "VantrelOS.h"
#include "VantrelServerId.h"
#include "VantrelStr.h"
