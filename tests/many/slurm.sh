#!/bin/bash
# The Slurm recipe, on a cluster of this machine alone: slurm.sh TRK SCRATCH PYTHON
# shellcheck disable=SC2119,SC2120 # arguments come through until_so
if [ "$(id -u)" != 0 ] || ! { command -v slurmctld && command -v slurmd && command -v munged; } >/dev/null; then
    echo "skipped: needs root, and slurmctld, slurmd and munged"
    exit 77
fi
. "$(dirname "${BASH_SOURCE[0]}")/recordings.sh"

# ---- A cluster of one node ----

cluster=$(mktemp -d)
running=()
stop() {
    local process
    # With their jobs, which would outlive them.
    if [ "${#running[@]}" = 3 ]; then
        timeout 10 scancel --user root || true
        for _ in {1..100}; do has_ended && break || sleep 0.2; done
    fi
    for process in "${running[@]}"; do
        kill "$process" 2>/dev/null || true
        wait "$process" 2>/dev/null || true
    done
    rm -rf "$cluster"
}
trap stop EXIT
mkdir "$cluster"/{state,spool,munge}
chmod 755 "$cluster"
head -c 128 /dev/urandom >"$cluster/munge/key"
chmod 400 "$cluster/munge/key"
chown -R munge: "$cluster/munge"
setpriv --reuid munge --regid munge --clear-groups munged --foreground --key-file "$cluster/munge/key" \
    --socket "$cluster/munge/socket" --pid-file "$cluster/munge/pid" --log-file "$cluster/munge/log" \
    --seed-file "$cluster/munge/seed" >"$cluster/munged" 2>&1 &
running=($!)
read -r controller node < <(python3 -c 'import socket
sockets = [socket.create_server(("127.0.0.1", 0)) for _ in range(2)]
print(*(each.getsockname()[1] for each in sockets))')
host=$(hostname -s)
export SLURM_CONF=$cluster/slurm.conf
# Eight tasks at a time, whatever the machine has: most of a short one is the scheduler's.
cat >"$SLURM_CONF" <<END
ClusterName=many
SlurmctldHost=$host(127.0.0.1)
SlurmctldPort=$controller
SlurmdPort=$node
AuthType=auth/munge
AuthInfo=socket=$cluster/munge/socket
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
JobAcctGatherType=jobacct_gather/none
SlurmUser=root
SlurmdUser=root
SelectType=select/cons_tres
ReturnToService=2
StateSaveLocation=$cluster/state
SlurmdSpoolDir=$cluster/spool
SlurmctldPidFile=$cluster/slurmctld.pid
SlurmdPidFile=$cluster/slurmd.pid
SlurmctldLogFile=$cluster/slurmctld.log
SlurmdLogFile=$cluster/slurmd.log
SlurmdParameters=config_overrides
KillWait=2
SchedulerParameters=batch_sched_delay=0,sched_interval=1
NodeName=$host NodeAddr=127.0.0.1 CPUs=8 RealMemory=8000
PartitionName=all Nodes=ALL Default=YES MaxTime=INFINITE State=UP
END
# Nothing is confined by groups of the kernel, which a container may lack; left alone slurmd looks for them.
printf '%s\n' CgroupPlugin=cgroup/v1 "CgroupMountpoint=$cluster" >"$cluster/cgroup.conf"
# until_so SECONDS COMMAND...
until_so() {
    local end=$((SECONDS + $1))
    until "${@:2}"; do
        [ $SECONDS -lt $end ] || { tail -n 20 "$cluster"/*.log >&2 && fail "not within $1 s: ${*:2}"; }
        sleep 0.2
    done
}
until_so 10 test -S "$cluster/munge/socket"
slurmctld -D -i >"$cluster/out" 2>&1 &
running=($! "${running[@]}")
slurmd -D >"$cluster/out" 2>&1 &
running=($! "${running[@]}")
is_up() { sinfo -h 2>/dev/null | grep -q idle; }
until_so 30 is_up
# has_ended [JOB]: or all of them
has_ended() { left=$(squeue -h ${1:+-j "$1"} -o %F 2>/dev/null) && [ -z "$left" ]; }
fact() { scontrol show job "$1" | sed -nE "s/.*\b$2=(\S*).*/\1/p"; }

# ---- A task that takes longer than it may ----

# Stopped in the middle of a file, which makes it long enough.
cat >bin/stuck <<'END'
#!/bin/bash
trk "$@" &
until compgen -G 'late/*_samples.tsv.part' >/dev/null || ! kill -0 $!; do sleep 0.001; done
# Again and again: the scheduler lets processes go on before it ends them.
while kill -STOP $(cat /proc/$!/task/$!/children) $!; do sleep 0.01; done
END
chmod +x bin/stuck
mkdir long
trk synth 'long/all day.trk' --minutes 4 --trials 2
echo 'all day.trk' >long.txt
stuck=$(TRK=stuck sbatch --parsable --array=1 --time=1 convert.sbatch long long.txt late)
until_so 20 compgen -G 'late/*.part' >/dev/null
scontrol update "JobId=${stuck}_1" EndTime=now+1seconds # no need to wait for all of a minute

# ---- The recipe ----

mkdir -p 'recordings/day 2'
mv recordings/05.trk "recordings/day 2/it's \\5.trk"
mv recordings/26.trk "recordings/day 2/  \$26.trk"
echo text >recordings/text.trk
others_have_ended() { has_ended || [ "$(sort -u <<<"$left")" = "$stuck" ]; }
recipe() {
    eval "$(commands "$1")" >out
    until_so 90 others_have_ended
}
recipe '## Slurm'
trk convert recordings -o whole --salvage --jobs 1 >out 2>&1 || true
sums whole >wanted
sums tables >now
diff wanted now || fail "the array makes something else than one run"
[ "$(awk -F'\t' '$2 == 0' outcome.tsv | wc -l) $(wc -l <outcome.tsv)" = "37 42" ] || fail "$(cat outcome.tsv)"
for wanted in '13.trk=1\|rows\|damaged in [12] places?, from byte [0-9]+ .*cannot be saved' \
    '39.trk=1\|rows\|damaged .*cannot be saved' 'text.trk=3\|no rows\|"not a recording.*' \
    'day 2/  $26.trk=1\|rows\|damaged in 1 place.*breaks off.*'; do
    row outcome.tsv "${wanted%%=*}" | grep -qxE "${wanted#*=}" || fail "$(row outcome.tsv "${wanted%%=*}")"
done
for wanted in '13.trk=1:0' 'text.trk=3:0' '40.trk=0:0'; do
    index=$(grep -nFx "${wanted%%=*}" recordings.txt)
    # shellcheck disable=SC2154 # job is of the manual's commands
    code=$(fact "${job}_${index%%:*}" ExitCode)
    [ "$code" = "${wanted#*=}" ] || fail "the scheduler knows ${wanted%%=*} by $code"
done

# In parts, when all is there: nothing is made again, and the table stays.
cp outcome.tsv before.tsv
touch marker
recipe '### More recordings than an array takes'
diff <(grep -v '^text' before.tsv) <(grep -v '^text' outcome.tsv) || fail "the table of a second run"
[ -z "$(find tables -type f -newer marker)" ] || fail "made again: $(find tables -type f -newer marker)"

# ---- The task that took too long, and again its number and one beyond the list ----

until_so 60 has_ended
[ "$(fact "${stuck}_1" JobState)" = TIMEOUT ] && [ ! -e 'late/all day.json' ] || fail "it took no longer than it may"
status=0
python3 collect.py long.txt late late.tsv || status=$?
[ $status = 3 ] && [ "$(row late.tsv 'all day.trk')" = "none|no rows|" ] || fail "$(cat late.tsv)"
again=$(sbatch --parsable --array=1-2 convert.sbatch long long.txt late)
until_so 30 has_ended "$again"
[ "$(fact "${again}_1" ExitCode) $(fact "${again}_2" ExitCode)" = "0:0 0:0" ] || fail "$(scontrol show job "$again")"
trk convert long -o whole_long >out
diff -r whole_long late || fail "after a kill at the end of its time something else is there"
