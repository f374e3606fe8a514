# What ./dev needs from the machine: Debian packages and a Python 2.7. Sourced by ./dev, which sets `root`.
# Installs only what is missing, says so in one line each, and keeps the details in build/setup.log.

base_packages=( g++ cmake ninja-build libboost-dev libgtest-dev libcli11-dev libedit-dev )
package_packages=( dpkg-dev binutils file )
test_packages=( valgrind gdb make pkg-config "${package_packages[@]}" )
bullseye_source=/etc/apt/sources.list.d/kel-bullseye.sources
bullseye_pin=/etc/apt/preferences.d/kel-bullseye

say() {
   echo "dev: $*" >&2
}

fail() {
   say "$*"
   exit 1
}

as_root() {
   if [ "$( id -u )" = 0 ]; then
      "$@"
   else
      sudo "$@"
   fi
}

# show_build_step LOG STARTED: one line that tells the last step of ninja in the log.
show_build_step() {
   local step
   step=$( grep -ao '^\[[0-9]*/[0-9]*\]' "$1" 2> /dev/null | tail -n 1 | tr -d '[]' )
   printf '\rdev: building%s, %d s\033[K' "${step:+, step ${step/\// of }}" $(( SECONDS - $2 )) >&2
}

# watch_build LOG: until unwatch_build, tells the steps that ninja writes there in one line of a terminal;
# nothing where standard error is none.
watch_build() {
   local log=$1 started=$SECONDS
   watcher=
   [ -t 2 ] || return 0
   : > "$log"
   while kill -0 $$ 2> /dev/null; do
      show_build_step "$log" $started
      sleep 0.5
   done &
   watcher=$!
}

unwatch_build() {
   [ -n "$watcher" ] || return 0
   kill "$watcher" 2> /dev/null || true
   wait "$watcher" 2> /dev/null || true
   watcher=
   printf '\r\033[K' >&2
}

can_install() {
   command -v apt-get > /dev/null && { [ "$( id -u )" = 0 ] || command -v sudo > /dev/null; }
}

# Runs apt-get as root, quietly; what it says is in the log.
apt() {
   as_root env DEBIAN_FRONTEND=noninteractive apt-get -qq \
      -o DPkg::Lock::Timeout=300 -o Dpkg::Use-Pty=0 "$@" \
      >> "$root/build/setup.log" 2>&1 < /dev/null
}

apt_is_updated=no
update_apt_once() {
   if [ $apt_is_updated = no ]; then
      say "updating the list of packages"
      apt update || return 1
      apt_is_updated=yes
   fi
}

is_installed() {
   [ "$( dpkg-query -W -f '${db:Status-Status}' "$1" 2> /dev/null )" = installed ]
}

# need_packages NAME...: installs those that are missing.
need_packages() {
   command -v dpkg-query > /dev/null || return 0   # not Debian: CMake names what is missing
   local name missing=()
   for name in "$@"; do
      is_installed "$name" || missing+=( "$name" )
   done
   [ ${#missing[@]} = 0 ] && return
   can_install || fail "missing: ${missing[*]}; become root or install sudo, or install them yourself"
   update_apt_once || fail "apt-get update failed; build/setup.log says why"
   say "installing ${missing[*]}"
   apt install -y --no-install-recommends "${missing[@]}" \
      || fail "apt-get install ${missing[*]} failed; build/setup.log says why"
}

# The path of the interpreter, if the given one can carry the module; else why not, with status 1.
probe_python27() {
   local answer
   if answer=$( "$1" "$root/cmake/python27_probe.py" 2> /dev/null ); then
      echo "$answer" | head -n 1
   else
      echo "$1 ${answer:-does not run}"
      return 1
   fi
}

# The first of the given interpreters that can carry the module.
first_python27() {
   local candidate path
   for candidate in "$@"; do
      if [ -x "$candidate" ] && path=$( probe_python27 "$candidate" ); then
         echo "$path"
         return
      fi
   done
   return 1
}

# The address from which this machine takes its own release of Debian, as apt reads its sources.
debian_mirror() {
   local codename
   codename=$( . /etc/os-release && echo "${VERSION_CODENAME:-}" )
   apt-get indextargets --format '$(CODENAME) $(REPO_URI)' \
      'Created-By: Packages' 'Origin: Debian' 'Label: Debian' 'Component: main' 2> /dev/null \
      | awk -v codename="$codename" '$1 == codename { print $2; exit }'
}

# Names Debian 11 to apt with so low a priority that nothing else is ever taken from there.
add_bullseye() {
   local uri=$1 keyring=/usr/share/keyrings/debian-archive-keyring.gpg
   {
      printf 'Types: deb\nURIs: %s\nSuites: bullseye\nComponents: main\n' "$uri"
      [ -e $keyring ] && echo "Signed-By: $keyring"
   } | as_root tee $bullseye_source > /dev/null
   printf 'Package: *\nPin: release n=bullseye\nPin-Priority: 100\n' \
      | as_root tee $bullseye_pin > /dev/null
   apt update -o Dir::Etc::sourcelist=$bullseye_source -o Dir::Etc::sourceparts=- \
      -o APT::Get::List-Cleanup=0
}

# Installs the python2.7-dev of Debian 11; leaves apt as it was if that cannot be had.
install_python27() {
   local uri
   can_install || return 1
   update_apt_once || return 1
   uri=$( debian_mirror )
   [ -n "$uri" ] || return 1
   say "installing python2.7-dev of Debian 11"
   if add_bullseye "$uri" && apt install -y --no-install-recommends python2.7-dev; then
      return
   fi
   as_root rm -f $bullseye_source $bullseye_pin
   say "python2.7-dev of Debian 11 cannot be installed; build/setup.log says why"
   return 1
}

# Unpacks the pybind11 of Debian 11, which still knows Python 2.7, into build/peers; it is installed nowhere,
# and apt is left as it was.
unpack_pybind11() {
   local folder=$root/build/peers added=no status=0
   [ -e "$folder/usr/include/pybind11/pybind11.h" ] && return
   can_install || return 1
   update_apt_once || return 1
   if [ ! -e $bullseye_source ]; then
      added=yes
      add_bullseye "$( debian_mirror )" || status=1
   fi
   mkdir -p "$folder"
   say "unpacking pybind11 of Debian 11"
   ( cd "$folder" && apt-get download pybind11-dev/bullseye && dpkg -x pybind11-dev_*.deb . ) \
      >> "$root/build/setup.log" 2>&1 || status=1
   [ $added = no ] || as_root rm -f $bullseye_source $bullseye_pin
   return $status
}

# Sets `python27` to the interpreter of the project. In this order: $PYTHON27, one on the path, that of
# Debian 11, one of pyenv. The choice is kept in build/python27.
find_python27() {
   local kept=$root/build/python27
   if [ -n "${PYTHON27:-}" ]; then
      python27=$( probe_python27 "$PYTHON27" ) || fail "PYTHON27: $python27"
      return
   fi
   if [ -s "$kept" ] && [ -x "$( cat "$kept" )" ]; then
      python27=$( cat "$kept" )
      return
   fi
   local on_path
   mapfile -t on_path < <( type -aP python2.7 )
   python27=$( first_python27 "${on_path[@]}" /usr/bin/python2.7 ) \
      || { install_python27 && python27=$( first_python27 /usr/bin/python2.7 ); } \
      || python27=$( first_python27 "${PYENV_ROOT:-$HOME/.pyenv}"/versions/2.7*/bin/python2.7 ) \
      || fail "Python 2.7 with headers and libpython2.7.so is missing; set PYTHON27 to one"
   echo "$python27" > "$kept"
}

# Debian 11's packages of that name, unpacked into the folder; apt keeps nothing of them.
unpack_bullseye() {
   local folder=$1 uri
   shift
   command -v apt-get > /dev/null || return 1
   if [ ! -e $bullseye_source ]; then
      uri=$( debian_mirror )
      { [ -n "$uri" ] && can_install && add_bullseye "$uri"; } || return 1
   fi
   mkdir -p "$folder/packages"
   (
      cd "$folder/packages"
      apt-get -qq download "${@/%//bullseye}" >> "$root/build/setup.log" 2>&1 || { update_apt_once \
         && apt-get -qq download "${@/%//bullseye}" >> "$root/build/setup.log" 2>&1; } || return 1
      local package
      for package in *.deb; do
         dpkg -x "$package" "$folder" || return 1
      done
   ) || return 1
   rm -r "$folder/packages"
}

# Sets `python27` to an interpreter that counts its references: the debug build of Debian 11, in
# build/python27-debug, which nothing but the checks uses.
find_python27_debug() {
   local folder=$root/build/python27-debug
   python27=$folder/python2.7
   [ -x "$python27" ] && return
   say "unpacking the debug interpreter of Debian 11"
   unpack_bullseye "$folder" python2.7 python2.7-minimal python2.7-dbg libpython2.7-dbg libpython2.7 \
      libpython2.7-minimal libpython2.7-stdlib libpython2.7-dev libffi7 libssl1.1 \
      || fail "the debug interpreter of Debian 11 cannot be had; build/setup.log says why"
   # Its headers are links to those of the usual build, and name their configuration by where Debian has it.
   local include=$folder/usr/include
   rm -r "$include/python2.7_d"
   cp -r "$include/python2.7" "$include/python2.7_d"
   cp "$include"/*/python2.7_d/pyconfig.h "$include/python2.7_d"
   # It says of itself that it is this script, so that it finds its own again.
   cat > "$folder/python" << 'END'
#!/bin/bash
here=$( dirname "$( readlink -f "${BASH_SOURCE[0]}" )" )
export PYTHONHOME=$here/usr LD_LIBRARY_PATH=$here/usr/lib/x86_64-linux-gnu
exec -a "$0" "$here/usr/bin/python2.7-dbg" "$@"
END
   chmod +x "$folder/python"
   mv "$folder/python" "$python27"
}

# The source of Debian 11's package of that name, unpacked into the folder. What apt reads for it is
# its own, so that apt is left as it was.
unpack_bullseye_source() {
   local package=$1 folder=$2 uri keyring=/usr/share/keyrings/debian-archive-keyring.gpg
   uri=$( debian_mirror )
   [ -n "$uri" ] || return 1
   mkdir -p "$folder/lists/partial"
   echo "deb-src [signed-by=$keyring] $uri bullseye main" > "$folder/sources.list"
   local options=( -qq -o "Dir::Etc::sourcelist=$folder/sources.list" -o Dir::Etc::sourceparts=-
      -o "Dir::State::lists=$folder/lists" -o APT::Sandbox::User=root )
   (
      cd "$folder"
      apt-get "${options[@]}" update && apt-get "${options[@]}" source --download-only "$package" \
         && mkdir source && tar -xzf "$package"_*.orig.tar.gz -C source --strip-components 1
   ) >> "$root/build/setup.log" 2>&1
}

# Sets `python27` to an interpreter without an allocator of its own, of which leak checkers see all:
# built of Debian 11's source in build/python27-plain, which nothing but the checks uses.
find_python27_plain() {
   local folder=$root/build/python27-plain
   python27=$folder/python2.7
   [ -x "$python27" ] && return
   need_packages make
   say "building an interpreter without an allocator of its own"
   rm -rf "$folder"
   unpack_bullseye_source python2.7 "$folder" \
      || fail "the source of Debian 11's Python 2.7 cannot be had; build/setup.log says why"
   (
      cd "$folder/source"
      ./configure --without-pymalloc --enable-unicode=ucs4 OPT="-O1 -g -fwrapv" \
         && make -j "$jobs"
   ) > "$folder/build.log" 2>&1 || fail "it cannot be built; $folder/build.log says why"
   ln -s source/python "$python27"
}

# All that building needs.
set_up() {
   mkdir -p "$root/build"
   need_packages "${base_packages[@]}"
   find_python27
}

# What tests and checks want beside it; a machine that is to run none goes without.
set_up_tests() {
   set_up
   need_packages "${test_packages[@]}"
}
