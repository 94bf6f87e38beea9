#pragma once

// Everything that orvo::kit offers.

#include "orvo_api.h"

#include "cmremoteworker.h"
#include "cmroutingworker.h"
#include "orvohttpgateway.h"
#include "orvorowsmodel.h"
#include "orvoserviceprocess.h"
#include "orvovaluebinding.h"
