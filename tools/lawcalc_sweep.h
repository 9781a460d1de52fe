#pragma once
// lawcalc --sweep PATH FRAME A B N FILE.svg: draws the path law PATH (one parameter to a
// 3-D point) over [A, B], seen obliquely, and at N parameters the frame law FRAME (one
// parameter to a 3-D vector) as an arrow from the path, with the second axis of the frame
// (tangent x frame) beside it, so that one sees the frame turn along the path.

/// Runs the sweep picture for the arguments after "--sweep" (`argc` of them in `argv`).
/// Starts and ends the law library itself.  Returns the process exit status: 0 when the
/// picture was written, 1 when a formula could not be read, a value could not be
/// computed or the file could not be written (the reason is printed on stderr), 2 for
/// wrong arguments.
int lawcalc_sweep(int argc, char** argv);
