# Tables of recordings. All that is to be known of the file format is behind .Call.

# Raises what the library says as a condition of class trkapi_<kind>, or gives the table.
read_table_of <- function(path, what, ..., call = sys.call(-1)) {
    one_text <- function(x) is.character(x) && length(x) == 1 && !is.na(x)
    demand <- function(fine, message) {
        if (!fine) {
            stop(condition(message, c("trkapi_argument", "trkapi_error", "error"), call))
        }
    }
    demand(one_text(path), "path is the name of one file")
    options <- list(...)
    for (name in names(options)) {
        value <- options[[name]]
        fine <- switch(name,
            columns = is.character(value) && length(value) > 0 && !anyNA(value),
            start = , stop = is.numeric(value) && length(value) == 1 && !is.na(value),
            velocities = , keep_times = isTRUE(value) || isFALSE(value),
            one_text(value))
        demand(is.null(value) || fine, paste0(name, " is not as its help page says"))
    }
    result <- .Call(trkapi_read, path.expand(path), what, options)
    if (!is.data.frame(result)) {
        stop(condition(result$message, c(paste0("trkapi_", result$kind), "trkapi_error", "error"), call,
                       offset = result$offset))
    }
    if (!is.null(attr(result, "warning"))) {
        warning(condition(attr(result, "warning"), c("trkapi_damage", "warning"), call,
                          damages = attr(result, "damages")))
        attr(result, "warning") <- NULL
    }
    result
}

condition <- function(message, class, call, ...) {
    structure(class = c(class, "condition"), list(message = message, call = call, ...))
}

read_samples <- function(path, columns = NULL, start = NULL, stop = NULL, velocities = FALSE, on_damage = "raise",
                         check = "check", keep_times = FALSE) {
    read_table_of(path, "samples", columns = columns, start = start, stop = stop, velocities = velocities,
                  on_damage = on_damage, check = check, keep_times = keep_times)
}

read_events <- function(path, start = NULL, stop = NULL, on_damage = "raise", check = "check",
                        keep_times = FALSE) {
    read_table_of(path, "events", start = start, stop = stop, on_damage = on_damage, check = check,
                  keep_times = keep_times)
}

read_messages <- function(path, start = NULL, stop = NULL, on_damage = "raise", check = "check",
                          keep_times = FALSE) {
    read_table_of(path, "messages", start = start, stop = stop, on_damage = on_damage, check = check,
                  keep_times = keep_times)
}

read_trials <- function(path, start_text = NULL, end_text = NULL, on_damage = "raise", check = "check",
                        keep_times = FALSE) {
    read_table_of(path, "trials", start_text = start_text, end_text = end_text, on_damage = on_damage,
                  check = check, keep_times = keep_times)
}

read_blocks <- function(path, on_damage = "raise", check = "check", keep_times = FALSE) {
    read_table_of(path, "blocks", on_damage = on_damage, check = check, keep_times = keep_times)
}

describe_columns <- function() .Call(trkapi_describe)
