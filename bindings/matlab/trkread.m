% TRKREAD  Read a recording of a Pupilon video eye tracker.
%
%   s = trkread(file, 'samples')   gaze and pupil size of every sample
%   s = trkread(file, 'events')    fixations, saccades, blinks, buttons, inputs
%   s = trkread(file, 'messages')  messages
%   s = trkread(file, 'trials')    trials; without texts each recording block
%   s = trkread(file, 'blocks')    recording blocks
%   [s, about] = trkread(...)
%
%   s is a struct of column vectors, texts in cell arrays; what is missing is NaN or ''. struct2table(s) makes a
%   table of it in MATLAB. about.units and about.descriptions tell unit and meaning of each column, about.damages
%   what is wrong with the recording. Items count from 0, recording blocks and trials from 1.
%
%   Options, as names and values behind the table:
%     'columns'     of samples: names, or groups of them: 'item', 'gaze', 'pupil_size', 'href', 'pupil',
%                   'resolution', 'velocity', 'words', 'extension'; one text or a cell array
%     'velocities'  of samples: true adds the velocities that the library computes
%     'start', 'stop'  of samples, events, messages: whole milliseconds of the tracker's clock, from start on and
%                   before stop
%     'start_text', 'end_text'  of trials: messages that contain them start and end a trial
%     'on_damage'   of a damaged recording: 'raise' an error (as by default), 'warn' and give what can be read as
%                   it stands, or 'salvage': leave damaged stretches out and read on behind them
%     'check'       'check' (as by default) drops samples outside of recording blocks, 'fill' fills gaps as well
%                   and blanks gaze in blinks, 'none' repairs nothing
%     'keep_times'  true leaves times as the tracker wrote them
%
%   Errors have the library's sentence and an identifier: 'trkapi:file', 'trkapi:not_a_recording',
%   'trkapi:damaged', 'trkapi:argument', ...; the warning about a damage has 'trkapi:damage'.
%
%   Example: mean gaze in the second trial
%     trials = trkread('s07.trk', 'trials', 'start_text', 'TRIALID', 'end_text', 'TRIAL OK');
%     s = trkread('s07.trk', 'samples', 'start', trials.start(2), 'stop', trials.('end')(2));
%     x = mean(s.gaze_x_left(~isnan(s.gaze_x_left)));
%
%   To build it, in this folder, with the library installed:
%     mkoctfile --mex trkread.c ../r/src/reader.c -ltrkapi     (Octave, from a shell)
%     mex trkread.c ../r/src/reader.c -ltrkapi                 (MATLAB)
