# The line of the README, on texts that are hard to read.
frame <- read.delim("tsv/texts_messages.tsv", na.strings = "")
expected <- c("\"begins with a quote", "ends with one\"", "in the \"middle\"", "\"", "\"\"", "tab\there", "line\nend")
stopifnot(nrow(frame) == 21, identical(frame$text[1:7], expected), frame$text[11] == "NA", frame$text[21] == "plain")
samples <- read.delim("tsv/deep/example_samples.tsv", na.strings = "")
stopifnot(is.numeric(samples$gaze_x_left), is.integer(samples$time), anyNA(samples$gaze_x_left))
