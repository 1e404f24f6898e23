# To be sourced: a Slurm of this machine alone, with two workers, in the folder $scratch/slurm; it ends with the shell.
# Returns 77 where its packages (slurmctld slurmd slurm-client munge) are not installed.
start_slurm() {
    for program in slurmctld slurmd sbatch munged; do
        command -v "$program" >/dev/null || { echo "$program is not installed"; return 77; }
    done
    local home=$scratch/slurm user host
    user=$(id -un) host=$(hostname -s)
    mkdir -p "$home"/{state,spool,munge}
    chmod 700 "$home/munge"
    head -c 1024 /dev/urandom >"$home/munge/key"
    chmod 600 "$home/munge/key"
    cat >"$home/slurm.conf" <<CONF
ClusterName=here
SlurmctldHost=$host
SlurmUser=$user
SlurmdUser=$user
AuthType=auth/munge
AuthInfo=socket=$home/munge/socket
CryptoType=crypto/munge
StateSaveLocation=$home/state
SlurmdSpoolDir=$home/spool
SlurmctldPidFile=$home/slurmctld.pid
SlurmdPidFile=$home/slurmd.pid
SlurmctldPort=26817
SlurmdPort=26818
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
SelectType=select/cons_tres
SelectTypeParameters=CR_CPU
ReturnToService=2
MpiDefault=none
SchedulerParameters=sched_interval=1
NodeName=$host NodeAddr=127.0.0.1 CPUs=2 State=UNKNOWN
PartitionName=all Nodes=$host Default=YES MaxTime=INFINITE State=UP OverSubscribe=NO
CONF
    export SLURM_CONF=$home/slurm.conf
    munged --foreground --force --key-file="$home/munge/key" --socket="$home/munge/socket" --pid-file="$home/munge/pid" \
        --log-file="$home/munge/log" --seed-file="$home/munge/seed" >"$home/munged.out" 2>&1 &
    slurm_processes=($!)
    slurmctld -D >"$home/slurmctld.out" 2>&1 &
    slurm_processes+=($!)
    slurmd -D -N "$host" >"$home/slurmd.out" 2>&1 &
    slurm_processes+=($!)
    for _ in $(seq 100); do
        [ "$(sinfo --noheader --format=%t 2>/dev/null)" = idle ] && return 0
        sleep 0.3
    done
    cat "$home"/*.out >&2
    echo "Slurm did not come up" >&2
    return 1
}

stop_slurm() {
    kill "${slurm_processes[@]}" 2>/dev/null || true
    wait "${slurm_processes[@]}" 2>/dev/null || true
}
