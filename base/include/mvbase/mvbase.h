// Everything of the base library.
#pragma once

#include "mvbase/archive.h"
#include "mvbase/attention.h"
#include "mvbase/exception.h"
#include "mvbase/fitter.h"
#include "mvbase/geometry.h"
#include "mvbase/image.h"
#include "mvbase/threads.h"
#include "mvbase/timer.h"
