# What the package reads, held against what trk writes of the same recordings.
library(trkapi)
trk <- Sys.getenv("TRKAPI_TRK")
if (!nzchar(trk)) {
    cat("TRKAPI_TRK does not name the program trk: not tried\n")
    quit(status = 0)
}
run <- function(...) stopifnot(system2(trk, shQuote(c(...)), stdout = FALSE) == 0)
folder <- tempfile()
dir.create(folder)
setwd(folder)
run("synth", "two.trk", "--minutes", "0.5", "--dropout", "5")
run("synth", "fast.trk", "--minutes", "0.2", "--rate", "2000", "--eyes", "left", "--compressed", "--trials", "3",
    "--blocks", "1")

same <- function(ours, table) {
    theirs <- read.delim(table, na.strings = "-", quote = "\"")
    shared <- intersect(names(theirs), names(ours))
    for (name in shared) {
        stopifnot(identical(is.na(ours[[name]]), is.na(theirs[[name]])))
        if (is.character(ours[[name]])) { # read.delim reads a carriage return as a line end
            stopifnot(identical(gsub("\r", "\n", ours[[name]]), as.character(theirs[[name]])))
        } else { # texts of floats are as short as they can be
            stopifnot(all(abs(ours[[name]] - theirs[[name]]) <= 1e-6 * abs(theirs[[name]]), na.rm = TRUE))
        }
    }
    setdiff(names(theirs), shared)
}
for (name in c("two", "fast")) {
    path <- paste0(name, ".trk")
    run("convert", path, "-o", ".", "--start", "TRIALID", "--end", "TRIAL OK", "--velocities", "--missing", "-")
    table <- function(what) paste0(name, "_", what, ".tsv")
    samples <- read_samples(path, check = "fill", velocities = TRUE)
    stopifnot(identical(same(samples, table("samples")), "trial"), anyNA(samples$gaze_x_left))
    same(read_events(path, check = "fill"), table("events")) |>
        identical(c("trial", "trial_time")) |> stopifnot()
    same(read_messages(path, check = "fill"), table("messages")) |>
        identical(c("trial", "trial_time")) |> stopifnot()
    trials <- read_trials(path, "TRIALID", "TRIAL OK", check = "fill")
    stopifnot(same(trials, table("trials"))[1] == "own_end", identical(same(read_blocks(path, check = "fill"),
                                                                            table("blocks")), "events"))
}
run("convert", Sys.getenv("TRKAPI_TEXTS"), "-o", ".", "--missing", "-")
same(read_messages(Sys.getenv("TRKAPI_TEXTS"), check = "fill"), "texts_messages.tsv")
part <- read_samples("fast.trk", c("time_exact", "gaze_x_left", "gaze"), start = 250200, stop = 250300)
stopifnot(identical(names(part)[1:2], c("time_exact", "gaze_x_left")), length(part) == 5,
          nrow(part) == 200, part$time_exact[1:2] == c(250200, 250200.5), is.na(part$gaze_x_right),
          nrow(read_samples("fast.trk", start = 250300, stop = 250200)) == 0,
          attr(part, "columns")$unit[2] == "display pixels", nrow(attr(part, "damages")) == 0)

# Errors: of their class, with the library's sentence, and nothing stays open; nor when R jumps out of a reading.
descriptors <- function() length(list.files("/proc/self/fd"))
before <- descriptors()
raises <- function(expression, class, text) {
    error <- tryCatch(expression, error = identity)
    if (!inherits(error, class) || !grepl(text, conditionMessage(error), fixed = TRUE)) {
        stop("not the error ", class, ": ", conditionMessage(error))
    }
    invisible(error)
}
raises(read_blocks("none.trk"), "trkapi_file", "none.trk")
raises(read_blocks("two_blocks.tsv"), "trkapi_not_a_recording", "two_blocks.tsv")
raises(read_samples("two.trk", "gaze_z"), "trkapi_argument", "\"gaze_z\"")
raises(read_samples("two.trk", start = 0.5), "trkapi_argument", "whole milliseconds")
raises(read_trials("two.trk", "TRAILID"), "trkapi_argument", "nothing starts a trial by \"TRAILID\"")
raises(read_events("two.trk", check = "often"), "trkapi_argument", "check")
raises(read_events(NA_character_), "trkapi_argument", "path")
local({ # R looks at the clock at some interrupts only
    setTimeLimit(elapsed = 1e-6, transient = TRUE)
    raises(for (i in 1:9) read_samples("two.trk"), "error", "time limit")
})

# A recording with a hole.
whole <- readBin("two.trk", "raw", file.size("two.trk"))
middle <- length(whole) %/% 2
writeBin(whole[-(middle + 0:299)], "hole.trk")
stopifnot(raises(read_samples("hole.trk"), "trkapi_damaged", "hole.trk")$offset > 0)
warned <- tryCatch(read_samples("hole.trk", on_damage = "warn"), trkapi_damage = identity)
stopifnot(grepl("^hole.trk is damaged: ", conditionMessage(warned)), nrow(warned$damages) > 0)
part <- suppressWarnings(read_samples("hole.trk", on_damage = "warn"))
salvaged <- read_samples("hole.trk", on_damage = "salvage")
all <- nrow(read_samples("two.trk"))
stopifnot(nrow(part) < nrow(salvaged), nrow(salvaged) > 0.98 * all, nrow(attr(salvaged, "damages")) > 0,
          nrow(read_events("hole.trk", on_damage = "salvage")) > 0)
stopifnot(descriptors() == before)
