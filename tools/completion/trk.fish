# Completion of trk for fish.

function __trk_list # values that stand separated by commas
    set -l given (string match -r '^.*,|' -- (commandline -ct | string replace -r '^--[a-z-]+=' ''))
    printf '%s\n' $given$argv
end

# Names of the columns of the kinds that the line asks for.
function __trk_columns
    set -l words (commandline -opc)
    set -l kinds (string match -rg -- '--kind[ =](\S+)' "$words")
    set -l given (string match -r '^.*[,+]|' -- (commandline -ct | string replace -r '^--[a-z-]+=' ''))
    $words[1] dump - --kind=$kinds --columns help 2>/dev/null |
        string replace -rf '^  (\S+) *(.*)' "$given\$1\t\$2"
end

function __trk_option # COMMAND,... OPTION...: what complete knows, for these commands
    complete -c trk -n "__fish_seen_subcommand_from $(string replace -a , ' ' $argv[1])" $argv[2..]
end

complete -c trk -n __fish_use_subcommand -f -a info -d 'Show what recordings hold'
complete -c trk -n __fish_use_subcommand -f -a check -d 'Tell whether recordings are sound'
complete -c trk -n __fish_use_subcommand -f -a trials -d 'Write the trials as a table'
complete -c trk -n __fish_use_subcommand -f -a dump -d 'Write the items as a table'
complete -c trk -n __fish_use_subcommand -f -a convert -d 'Turn recordings into tables'
complete -c trk -n __fish_use_subcommand -f -a synth -d 'Make up a recording'
complete -c trk -n __fish_use_subcommand -l version -d 'Print the version'
complete -c trk -s h -l help -d 'Print a help text'

__trk_option info,trials,dump,convert -l start -x -d 'Text in messages that start a trial'
__trk_option info,trials,dump,convert -l end -x -d 'Text in messages that end a trial'
__trk_option info,trials,dump,convert -l check -x -a 'none basic full' -d Repairs
__trk_option info,trials,dump,convert -l tolerant -d 'Show what lies before the damage'
__trk_option info,trials,dump,convert -l salvage -d 'Show all that can be saved'
__trk_option info,trials,dump,convert -l message-offsets -d 'Take numbers before messages as offsets'
__trk_option trials,convert -l variable -x -d 'Pattern with two groups, name and value'
__trk_option trials,convert -l columns -x -d 'Columns to write'
__trk_option trials,dump,convert -l missing -x -d 'What stands for a missing value'
__trk_option trials,dump,convert -l encoding -x -a 'UTF-8 ISO-8859-1 WINDOWS-1252 SHIFT_JIS GB18030' \
    -d 'Character encoding of texts'
__trk_option trials,dump -s o -l output -r -F -d 'File to write in place of standard output'
__trk_option info,check -l json -d 'Write it for programs'

__trk_option dump -l columns -x -a '(__trk_columns)' -d 'Columns to write'
__trk_option dump -l kind -x -a '(__trk_list samples events messages recordings)' -d 'Items to write'
__trk_option dump -l from -x -d 'Only items with this time or a later one'
__trk_option dump -l to -x -d 'Only items with this time or an earlier one'
__trk_option dump -l trial -x -d 'Only the items of this trial'
__trk_option dump -l log -d 'Merge the message log beside the recording'
__trk_option dump -l log-file -r -F -d 'Merge this message log'
__trk_option dump -l raw -d 'Add columns for raw pupil and corneal reflection'

__trk_option convert -s o -l output -x -a '(__fish_complete_directories)' -d 'Folder to write to'
__trk_option convert -l format -x -a 'tsv csv tsv.gz csv.gz hdf5 bids' -d 'Format of the tables'
__trk_option convert -l what -x -a '(__trk_list samples events messages trials blocks)' -d 'Tables to write'
__trk_option convert -l velocities -d 'Add the smoothed velocities to samples'
__trk_option convert -l jobs -x -d 'Recordings at a time'
__trk_option convert -l force -d 'Make again what is there already'
__trk_option convert -l sub -x -d Subject
__trk_option convert -l task -x -d Task
__trk_option convert -l ses -x -d Session
__trk_option convert -l acq -x -d Acquisition
__trk_option convert -l run -x -d Run
__trk_option convert -l datatype -x -a 'beh eeg func ieeg meg nirs' -d 'Folder of the files'
__trk_option convert -l screen-size -x -d 'Size of the screen, such as 53x30cm'
__trk_option convert -l screen-resolution -x -d 'Pixels of the screen, such as 1920x1080'
__trk_option convert -l screen-distance -x -d 'Distance of the screen, such as 60cm'
__trk_option convert -l screen-origin -x -a 'top-left top-right bottom-left bottom-right' \
    -d 'Corner at which gaze is (0, 0)'

__trk_option synth -l minutes -x -d 'Minutes from the first message to the last'
__trk_option synth -l rate -x -a '250 500 1000 2000' -d 'Samples per second'
__trk_option synth -l eyes -x -a 'left right both' -d 'Recorded eyes'
__trk_option synth -l trials -x -d 'Number of trials'
__trk_option synth -l blocks -x -d 'Number of recording blocks'
__trk_option synth -l noise -x -d 'Noise in degrees, RMS from sample to sample'
__trk_option synth -l dropout -x -d 'Samples lost outside of blinks, per cent'
__trk_option synth -l blinks -x -d 'Blinks a minute'
__trk_option synth -l drift -x -d 'Drift in fixations, degrees per second'
__trk_option synth -l seed -x -d 'Another number makes another session'
__trk_option synth -l compressed -d 'Write a compressed recording'
__trk_option synth -l force -d 'Replace OUT when it is there'
__trk_option synth -l damage -x -a '(__trk_list bit zero hole cut)' -d 'Damage the recording'
__trk_option synth -l truth -r -F -d 'Write the true events as a table'
__trk_option synth -l log -r -F -d 'Write the external message log'
