// CacheProgress.h - the progress line of `ember-tide cache` on a terminal.
//
// One line on stderr, redrawn in place: the files done of the total, files per second, and the
// time left at the rate so far ("--:--" before the first file is done); the last drawing gives
// the whole run's time instead. Callers hold the filler's output lock while drawing, so that a
// message never lands in the middle of the line. Nothing here decides when to draw.
#pragma once

namespace tool {

// Draws the line over the previous one; `last` for the final drawing after the run.
void drawProgress(long done, long total, double seconds, bool last);

} // namespace tool
