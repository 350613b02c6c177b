#pragma once

#include <vantrel/VantrelClientAPI.h>

#include "Output.h"

/// What a server says of itself, as an object for `out`.
Json serverRecord(const Output& out, const VantrelServerInfo& info);
