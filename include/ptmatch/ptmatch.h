// Everything of ptmatch and its base library.
#pragma once

#include "mvbase/mvbase.h"
#include "ptmatch/dots.h"
#include "ptmatch/gridcorr.h"
#include "ptmatch/imageio.h"
#include "ptmatch/matext.h"
#include "ptmatch/pinv.h"
#include "ptmatch/planned.h"
#include "ptmatch/ppmatch.h"
#include "ptmatch/ptgdmap.h"
#include "ptmatch/robustgrid.h"
#include "ptmatch/scorehashing.h"
#include "ptmatch/tm.h"
