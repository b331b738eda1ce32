"""Runs the ptmatch tool's commands with --svg and reads every picture with Python's XML
parser: each must be an <svg> document with the parts a reader looks for."""
import os
import subprocess
import sys
import xml.etree.ElementTree as ElementTree

SVG = "{http://www.w3.org/2000/svg}"


def run(tool, *args):
    done = subprocess.run([tool, *args], capture_output=True, text=True)
    if done.returncode != 0:
        sys.exit(f"ptmatch {' '.join(args)} exited {done.returncode}: {done.stderr.strip()}")


def check(path, want_texts):
    root = ElementTree.parse(path).getroot()
    assert root.tag == SVG + "svg", root.tag
    texts = " ".join(t.text or "" for t in root.iter(SVG + "text"))
    for want in want_texts:
        assert want in texts, f"{path}: no text containing {want!r}"
    circles = len(list(root.iter(SVG + "circle")))
    assert circles > 0, f"{path}: no points drawn"
    print(f"{os.path.basename(path)}: {len(list(root.iter()))} elements, {circles} circles")


def main():
    tool, out = sys.argv[1], sys.argv[2]
    os.makedirs(out, exist_ok=True)
    demo = os.path.join(out, "demo.svg")
    run(tool, "demo", "--svg", demo, "--write-points", out)
    check(demo, ["fiducial", "coverage", "grid to point", "point without a node"])

    match = os.path.join(out, "match.svg")
    run(tool, "match", "--model", os.path.join(out, "fiducial-model.txt"),
        "--data", os.path.join(out, "fiducial-data.txt"), "--scale", "-0.1:0.1", "--svg", match)
    check(match, ["pose", "coverage", "fit error", "model point, unmatched"])

    grid = os.path.join(out, "grid.svg")
    run(tool, "grid", "--points", os.path.join(out, "grid-points.txt"), "--xv", "10,0",
        "--yv", "0,10", "--staggered", "--svg", grid)
    check(grid, ["valid", "grid to point"])


if __name__ == "__main__":
    main()
