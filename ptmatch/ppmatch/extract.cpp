// An exported entry point kept for compatibility: it does nothing.
#include "ptmatch/ppmatch.h"

// Reads none of its arguments, writes none, returns nothing and throws nothing, whatever
// the matcher's state or the result's contents.
void mfExtractPointsFromPointMatcherResults(const mvPointMatcher& /*matcher*/,
                                            const std::vector<mvVector<2>>& /*dataPoints*/,
                                            const mvPointMatcherResult& /*result*/,
                                            const std::vector<mvVector<2>>& /*modelPointsOut*/,
                                            const std::vector<mvVector<2>>& /*dataPointsOut*/) {}
