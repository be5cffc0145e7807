% What trkread reads, held against what trk writes of the same recordings; check.sh makes them.
1;

% The shared columns are the same; returns the names of the others.
function others = same(ours, file)
    [first, rest] = strtok(fileread(file), "\n");
    names = strsplit(first, "\t");
    cells = strsplit(rest(2:end-1), {"\t", "\n"}, "CollapseDelimiters", false);
    cells = reshape(cells, numel(names), [])';
    shared = intersect(names, fieldnames(ours)');
    for name = shared
        theirs = cells(:, strcmp(names, name{1}));
        if iscell(ours.(name{1}))
            assert(ours.(name{1}), theirs);
        else
            assert(ours.(name{1}), str2double(theirs), -1e-6);
        end
    end
    others = strjoin(setdiff(names, shared), " ");
end

function raises(id, text, varargin)
    try
        trkread(varargin{:});
    catch error
        assert(error.identifier, ["trkapi:" id]);
        assert(index(error.message, text) > 0, error.message);
        return
    end
    assert(false, ["no error " id]);
end

for recording = {"two", "fast", "odd"}
    name = recording{1};
    table = @(what) [name "_" what ".tsv"];
    read = @(what, varargin) trkread([name ".trk"], what, "check", "fill", "on_damage", "salvage", varargin{:});
    assert(same(read("samples"), table("samples")), "trial");
    assert(same(read("events"), table("events")), "trial trial_time");
    assert(same(read("messages"), table("messages")), "trial trial_time");
    trials = read("trials", "start_text", "TRIALID", "end_text", "TRIAL OK");
    assert(strncmp(same(trials, table("trials")), "blinks_left", 11) && numel(trials.trial) > 0);
    assert(same(read("blocks"), table("blocks")), "events");
end
[part, about] = trkread("fast.trk", "samples", "columns", {"time_exact", "gaze"}, "start", 250200, "stop", 250300);
assert(fieldnames(part){1}, "time_exact");
assert(part.time_exact(1:2), [250200; 250200.5]);
assert(all(isnan(part.gaze_x_right)) && numel(part.gaze_x_left) == 200);
assert(about.units.gaze_x_left, "display pixels");
assert(isempty(trkread("fast.trk", "samples", "start", 250300, "stop", 250200).time));
assert(any(isnan(trkread("odd.trk", "events", "check", "fill", "on_damage", "salvage").start)));

open = numel(glob("/proc/self/fd/*"));
raises("file", "none.trk", "none.trk", "samples");
raises("not_a_recording", "two_blocks.tsv", "two_blocks.tsv", "blocks");
raises("argument", "\"gaze_z\"", "two.trk", "samples", "columns", {"gaze_x_left", "gaze_z"});
raises("argument", "nothing starts a trial by \"TRAILID\"", "two.trk", "trials", "start_text", "TRAILID");
raises("argument", "whole milliseconds", "two.trk", "samples", "start", -1);
raises("argument", "options are", "two.trk", "samples", "begin", 1);
raises("argument", "names the table", "two.trk", 7);
raises("argument", "there are samples", "two.trk", "fixations");
raises("damaged", "hole.trk", "hole.trk", "samples");
whole = trkread("two.trk", "samples");
[salvaged, about] = trkread("hole.trk", "samples", "on_damage", "salvage");
part = trkread("hole.trk", "samples", "on_damage", "warn");
[~, id] = lastwarn();
assert(id, "trkapi:damage");
assert(numel(part.time) < numel(salvaged.time) && numel(salvaged.time) > 0.98 * numel(whole.time));
assert(numel(about.damages) > 0);
assert(numel(glob("/proc/self/fd/*")), open);
