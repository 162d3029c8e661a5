# Shell functions for the scripts at the top of the tree.

# need_packages NAME...: installs the Debian packages that are missing, and says
# so. As an ordinary user it only names them.
need_packages() {
  missing=
  for package in "$@"; do
    dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' ||
      missing="$missing $package"
  done
  [ -z "$missing" ] && return 0
  if [ "$(id -u)" -ne 0 ]; then
    echo "Missing packages:$missing" >&2
    echo "Install them with: sudo apt-get install$missing" >&2
    exit 1
  fi
  echo "Installing packages:$missing"
  # shellcheck disable=SC2086
  { apt-get update && DEBIAN_FRONTEND=noninteractive \
    apt-get install -y --no-install-recommends $missing; } >/dev/null || {
    echo "Could not install:$missing" >&2
    exit 1
  }
}

# try_packages NAME...: the same for packages that not every machine can have, some of
# the board's processor. Where they cannot be had, says so and fails.
try_packages() {
  missing=
  for package in "$@"; do
    dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' ||
      missing="$missing $package"
  done
  [ -z "$missing" ] && return 0
  if [ "$(id -u)" -ne 0 ]; then
    echo "Skipped: these packages are not installed:$missing"
    echo "Install them with: sudo dpkg --add-architecture armel && sudo apt-get update &&" \
      "sudo apt-get install$missing"
    return 1
  fi
  echo "Installing packages:$missing"
  # shellcheck disable=SC2086
  { dpkg --add-architecture armel && apt-get update && DEBIAN_FRONTEND=noninteractive \
    apt-get install -y --no-install-recommends $missing; } >/dev/null || {
    echo "Skipped: these packages could not be installed:$missing"
    return 1
  }
}

# in_scratch COMMAND...: runs it in a session of its own with a temporary folder of its
# own. Whatever ends it, ^C, a signal or a closed pipe too, neither stays behind. Ends
# the shell when the command failed.
in_scratch() {
  scratch=$(mktemp -d "${TMPDIR:-/tmp}/vantorig-XXXXXX")
  session=
  trap leave_scratch EXIT
  trap 'exit 129' HUP
  trap 'exit 130' INT
  trap 'exit 131' QUIT
  trap 'exit 141' PIPE
  trap 'exit 143' TERM
  TMPDIR=$scratch setsid env --default-signal=INT,QUIT "$@" &
  session=$!
  wait "$session" || exit $?
}

leave_scratch() {
  status=$?
  trap '' HUP INT QUIT PIPE TERM
  if [ -n "$session" ]; then
    kill "$session" 2>/dev/null || : # also before it has its session
    tries=0
    while pkill -TERM -s "$session" && [ $((tries += 1)) -lt 20 ]; do sleep 0.1; done
    pkill -KILL -s "$session" || :
  fi
  # Who dies may have written something meanwhile.
  until rm -rf "$scratch"; do sleep 0.1; done
  exit "$status"
}

# source_date: seconds since 1970, of the last commit; of the newest source file where
# the history is missing (a tarball) or not to be read (another user's, no git).
source_date() {
  { [ -e .git ] && git log -1 --format=%ct 2>/dev/null; } && return
  find . \( -path './build*' -o -path ./out -o -path ./.git \) -prune -o \
    -type f -printf '%T@\n' | sort -n | tail -n 1 | cut -d . -f 1
}

# The cross compiler, musl for the board and the emulator of its processor.
try_arm_packages() { try_packages g++-arm-linux-gnueabi musl-dev:armel qemu-user-static; }

# What an emulated board with a kernel needs beside them; for one of our own
# configuration, a compiler's helpers.
try_kernel_packages() {
  try_packages g++-arm-linux-gnueabi musl-dev:armel make qemu-system-arm || return 1
  [ "$1" != arm926 ] || try_packages bc bison flex xz-utils
}

# build DIRECTORY [TARGET...]: builds quietly; shows what went wrong.
build() {
  place=$1
  ninja -C "$@" >"$place/ninja.log" 2>&1 || {
    cat "$place/ninja.log" >&2
    echo "The build in $place failed." >&2
    exit 1
  }
  tail -n 1 "$place/ninja.log"
}
