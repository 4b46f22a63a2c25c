# Sourced by dev/run and the benchmarks: start_pulse_sandbox DIR starts a
# private PulseAudio daemon in DIR (a null sink "speakers" as default sink, a
# virtual microphone "virtmic" fed through the null sink "micsink"), exports
# PULSE_SERVER and appends the processes it starts to the array `pids`.
# pulse_sandbox_daemon DIR LOG [ARGS...]: the sandbox's daemon in the
# foreground (its socket DIR/native, its log DIR/LOG), ARGS added to it; for
# a script that kills it and starts it again.
pulse_sandbox_daemon() {
  local dir="$1" log="$2"
  shift 2
  XDG_RUNTIME_DIR="$dir" HOME="$dir" exec pulseaudio -n --daemonize=no --exit-idle-time=-1 \
    --disallow-exit --use-pid-file=no --realtime=no --high-priority=no \
    --log-target=file:"$dir/$log" \
    -L "module-native-protocol-unix auth-anonymous=1 socket=$dir/native" \
    -L "module-null-sink sink_name=speakers sink_properties=device.description=Speakers rate=48000" \
    -L "module-null-sink sink_name=micsink sink_properties=device.description=MicFeed rate=48000" \
    -L "module-remap-source source_name=virtmic master=micsink.monitor source_properties=device.description=VirtualMic" \
    "$@"
}

start_pulse_sandbox() {
  local dir="$1"
  pulse_sandbox_daemon "$dir" daemon.log -L module-always-sink &
  pids+=($!)
  export PULSE_SERVER="unix:$dir/native"
  for _ in $(seq 100); do
    pactl info >/dev/null 2>&1 && break
    sleep 0.1
  done
  pactl set-default-sink speakers
  pactl set-default-source virtmic
  # Null sinks render at the pace their clients ask for; low-latency readers
  # on the monitors keep them paced like sound cards.
  local m
  for m in micsink.monitor speakers.monitor; do
    parec --device="$m" --latency-msec=10 --raw --format=u8 --rate=8000 --channels=1 >/dev/null 2>&1 &
    pids+=($!)
  done
  sleep 2 # the sinks leave their first long sleep
}
