// The grid corresponder in corners of its behaviour that the other tests leave open, each
// worked out by hand.
#include <gtest/gtest.h>

#include "gridcorr/gridcorr_support.h"
#include "ptmatch/gridcorr.h"

namespace {

using namespace gridcorr_test;
using Defs = mv_PointToGridCorresponderDefs;
using TrainParams = mv_PointToGridCorresponderTrainParams;

// Training from node positions stores its parameters first, before it reads the first
// node: an empty list fails its precondition with the new parameters already in place,
// and the probes of the earlier training are left as they were.
TEST(GridCorrReview, TrainingFromNoNodesStoresTheParamsBeforeFailing) {
  auto corresponder = trainedOn({"##", "#."}, Defs::ePointFeatures);
  const TrainParams staggeredThick(true, Defs::eThickBoundaryFeatures);
  EXPECT_THROW(corresponder.train(std::vector<mvPair<long>>(), staggeredThick, mvXform<2>::I),
               mvAssertionError);
  EXPECT_EQ(corresponder.trainParams(), staggeredThick);
  EXPECT_EQ(probesOf(corresponder), (Probes{{0, 0, 1}, {1, 0, 1}, {0, 1, 1}}));
}

}  // namespace
