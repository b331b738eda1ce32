// The help texts of the program and its commands.

#include "commands.h"

namespace ptmatch::cli {

namespace {

const char* const kGeneralHelp =
    R"(ptmatch - find a point model in measured points, or map dots onto a grid

Usage:
  ptmatch demo [--svg FILE | --no-svg] [--json] [--write-points DIR]
  ptmatch match --model FILE --data FILE [search options] [--json] [--svg FILE]
  ptmatch grid (--points FILE | --image FILE) [--xv X,Y --yv X,Y] [grid options] [--json] [--svg FILE]
  ptmatch pattern --image FILE --data FILE [search options] [--json] [--svg FILE]
  ptmatch dots --image FILE [dot options] [--json] [--svg FILE]
  ptmatch --help | COMMAND --help | --version

Commands:
  demo      run the built-in scenarios (a fiducial in clutter, a staggered dot grid)
            and compare what is found with the truth
  match     train a matcher with model points and find the model in data points
  grid      assign points to the nodes of a regular, optionally staggered grid
  pattern   train a matcher from a dot-pattern image and find it in data points
  dots      find the dots of an image (PGM, PNG, TIFF, JPEG) to a fraction of a pel;
            `match` and `grid` take such images in place of point files

Point files hold one point a line, 'x y' or 'x,y', with an optional third column of
whole-number weights (model files only); '#' starts a comment and one header line
(such as 'x,y') is skipped. A JSON array of [x, y] pairs works as well.

match, grid and pattern take --time-limit SECONDS: the search stops once it has run that
long, with a message naming the limit and exit status 3. Every command takes --threads N:
its searches use N threads (default: every core; results do not depend on it).

Exit status: 0 when the command ran (also when it found nothing), 2 for a usage or
input error, 1 for an internal failure (or a demo that missed its truth), 3 when
--time-limit stopped the command.
)";

const char* const kDemoHelp =
    R"(Usage: ptmatch demo [--svg FILE | --no-svg] [--json] [--write-points DIR]

Runs two built-in scenarios made from a fixed seed and prints what was found next to
the truth:
  1. a fiducial-like model of 40 points; the data are the model rotated 37.5 degrees,
     scaled 1.035 and moved, with 0.2 px noise, 3 points missing and 12 clutter
     points; the matcher searches the full rotation range and scales 0.9 to 1.1;
  2. a staggered dot grid, rotated 6 degrees and scaled 1.03, with 0.2 px noise and
     3 dots missing, mapped onto its nodes with mfPtToGridMap.

Options:
  --svg FILE           write the picture to FILE (default: ptmatch-demo.svg)
  --no-svg             write no picture
  --json               print one JSON object: {"command": "demo", "scenarios": [...],
                       "passed": B}
  --write-points DIR   also write the scenarios' point files into DIR
                       (fiducial-model.txt, fiducial-data.txt, grid-points.txt)

Exit status 0 when both scenarios are recovered within 0.5 px of the truth, else 1.
)";

const char* const kSearchOptionsHelp =
    R"(Search options:
  --start-pose a00,a01,a10,a11,tx,ty
                        the nominal model-to-data pose; the ranges below are taken
                        around it (default: the identity)
  --x-range LO:HI|full  translation range in x, around the start pose (default: full)
  --y-range LO:HI|full  translation range in y (default: full)
  --rotation LO:HI|full rotation range in degrees around the start pose; a span of 360
                        or more is full (default: full)
  --scale LO:HI         range of the relative scale change, scale factor minus 1:
                        -0.1:0.1 allows 0.9 to 1.1; LO at least -0.9 (default: 0:0)
  --min-coverage C      least matched fraction of the model (by weight), 0 to 1
                        (default: 0.5)
  --grid-size G|auto    size of the search's quantisation cell, above 0, in model
                        units (default: auto, from the model's point spacing)
  --capture-range R|auto
                        distance within which a data point matches a model point
                        (default: auto, the grid size)
  --max-results N       most results to report, at least 1 (default: 1)

Output:
  --json                print one JSON object: {"command", "mode", "time", "results":
                        [{"coverage", "fitError", "pose": {"a00", "a01", "a10", "a11",
                        "tx", "ty"}, "rotationDeg", "scale", "map"}]}; "map" holds per
                        model point the index of its data point, or -1
  --svg FILE            write a picture: the data, the model under the best pose, a line
                        per correspondence, unmatched points marked, and a legend
)";

const char* const kMatchHead =
    R"(Usage: ptmatch match --model FILE --data FILE [--weights FILE] [--exhaustive]
                     [search options] [--json] [--svg FILE]

Trains a matcher with the model points and finds the poses that carry the model onto
the data points within the given ranges. Prints per result the coverage (matched model
weight over total weight), the number of matched points, the fit error (rms distance of
the matched pairs), the rotation, scale and translation of the pose, then the best pose.

Input:
  --model FILE          model points (a third column holds whole-number weights; a
                        matched point of negative weight counts against a pose)
  --data FILE           data points
  --weights FILE        the model's weights, one whole number a line (or a JSON array),
                        for a model file without a weight column
  --exact               run the written hypothesis search over the whole ranges with its
                        automatic sizes, instead of the planned search (which finds the
                        same matches, verified the same way, usually many times faster;
                        a given --grid-size also runs the written search as given)
  --exhaustive          try every pairing of model and data points instead of the
                        hypothesis search: (larger set + 1) ^ (smaller set) assignments,
                        so only for a few points (refused beyond 10^8 assignments)
  --model-image FILE    the centres of the dots of an image as the model points, in
                        place of --model (dot options as for `ptmatch dots`)
  --data-image FILE     the centres of the dots of an image as the data points

)";

const char* const kPatternHead =
    R"(Usage: ptmatch pattern --image FILE --data FILE [--pitch P] [search options]
                       [--json] [--svg FILE]

Trains a matcher from a dot-pattern image, in which every nonzero pel is a dot, and
finds the pattern in the data points. The model points are the dots' pel positions in
scan order; a result's pose maps pel positions onto data points and its "map" gives per
dot the index of its data point, or -1.

Input:
  --image FILE          the pattern: binary or plain PGM (8 bits))"
#ifdef PTMATCH_HAVE_PNG
    R"(, or PNG (grey or colour,
                        reduced to grey))"
#endif
    R"(
  --data FILE           data points
  --pitch P             data units between neighbouring pattern pels (default: 1); the
                        data are divided by P for the search and the poses scaled back

Dense patterns (10 or more dots, some dot with two or more neighbouring dots) are matched
through a grid mapping: it accepts neighbour distances only within 1 + the --scale range,
so give a scale range (such as -0.1:0.1) for measured data, and its snap tolerance is the
--capture-range in pels (default here: 1.25 times the longest step the mapping links
along, one pel or, when no two dots touch edge to edge, a diagonal). The fit error of
such results is the library's mean squared residual in pels; sparse patterns report the
rms distance of the matched pairs in pels. The pattern search is free in translation and
starts from the identity: --start-pose, --x-range and --y-range have no effect on it.

)";

const char* const kGridHelp =
    R"(Usage: ptmatch grid (--points FILE | --image FILE) [--xv X,Y --yv X,Y] [--staggered]
                    [--reject K] [--json] [--svg FILE]
       ptmatch grid --plain (--points FILE | --image FILE) --xv X,Y --yv X,Y [--staggered]
                    [--snap S] [--size-tol LO:HI] [--angle-tol LO:HI] [--json] [--svg FILE]

Assigns the points to the nodes (u, v) of a regular grid and fits the grid-to-point
transforms. By default the robust mapping (mfRobustGridMap) is used: it finds the pitch
and the rotation in the data, follows perspective, gives each node at most one point and
leaves clutter without a node (rejected by its residual against the noise level). The
indices start at 0 at the board's first row and column; a mapping it cannot stand behind
is reported not valid, with the reason. --plain uses the written mapping (mfPtToGridMap)
instead, whose node (0, 0) is where its growth started.

Options:
  --points FILE       the points
  --image FILE        or the centres of the dots of an image (dot options as for
                      `ptmatch dots`: --polarity, --threshold, --min-area, --max-area,
                      --min-roundness)
  --xv X,Y            vector from a node to its neighbour along the first axis; the robust
                      mapping takes both --xv and --yv or neither (then it estimates them
                      and labels the axis nearest +x first)
  --yv X,Y            vector along the second axis (with --plain one of them may be 0,0 for
                      a single row of dots)
  --staggered         alternate rows are offset by half a pitch: nodes lie at u xv + v yv
                      with u + v even
  --reject K          robust mapping: a point farther from its node than K noise levels
                      has no node (default: 6)
  --plain             use the written mapping; the three options below apply only to it
  --snap S            how far a point may lie from its node. The mapping looks for a
                      point's neighbours only in the buckets next to its own, and a bucket
                      is S wide, so S must exceed the neighbour distance. Default: 1.25
                      times the longest vector the mapping links along (the longer of xv
                      and yv; with --staggered the longer of xv + yv and yv - xv)
  --size-tol LO:HI    accepted neighbour distances relative to |xv| and |yv|
                      (default: 0.8:1.2)
  --angle-tol LO:HI   accepted rotation of the grid in degrees (default: -20:20)
  --json              print one JSON object: {"command": "grid", "valid", "count", "time",
                      "grid2point": {"a00", .., "ty"}, "map": [[u, v] or null per point]};
                      the robust mapping adds "reason", "sigma" (the noise level),
                      "homography" (3 x 3, node to point) and "residuals" (null per
                      point without a node)
  --svg FILE          write a picture: every point labelled with its node, points
                      without a node (rejected) crossed out, neighbouring nodes linked
)";

const char* const kDotsHelp =
    R"(Usage: ptmatch dots --image FILE [--polarity dark|bright|either]
                    [--threshold auto|local|N] [--min-area A] [--max-area A]
                    [--min-roundness R] [--json] [--svg FILE]

Finds the dots of a grey image (PGM of 8 or 16 bits; PNG, TIFF and JPEG when the library
was built with them; colour is turned to grey) and prints each dot's centre, area in pels,
contrast in grey levels and roundness (minor over major axis, 1 for a disc). Centres are
in pels, the centre of the upper-left pel at (0, 0); dots come sorted by the row of their
centre (rounded), then by x. Dots that touch the image's edge are marked (border).

Options:
  --image FILE          the image
  --polarity P          dark (default), bright or either
  --threshold T         auto (default: Otsu's threshold over the whole image), local
                        (follows uneven illumination), or a grey value N
  --min-area A          smallest dot in pels (default: 4)
  --max-area A          largest dot in pels (default: 100000)
  --min-roundness R     0 to 1 (default: 0)
  --json                print one object: {"width", "height", "dots": [{"x", "y", "area",
                        "contrast", "roundness"}], "time"}; time is the detection's
                        seconds, reading the file left out
  --svg FILE            write a picture: the image with each dot's outline and centre
)";

}  // namespace

std::string helpText(const std::string& command) {
  if (command.empty()) return kGeneralHelp;
  if (command == "demo") return kDemoHelp;
  if (command == "match") return std::string(kMatchHead) + kSearchOptionsHelp;
  if (command == "pattern") return std::string(kPatternHead) + kSearchOptionsHelp;
  if (command == "grid") return kGridHelp;
  if (command == "dots") return kDotsHelp;
  return "";
}

}  // namespace ptmatch::cli
