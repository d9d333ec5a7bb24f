# shellcheck shell=bash
# Sourced by demo.sh and test.sh: `need_packages name...` installs the Debian packages that are not there yet.
# On other systems it only names them: what is missing shows when the build asks for it.

as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    elif command -v sudo > /dev/null; then
        sudo "$@"
    else
        echo "Neither root nor sudo here. As root, run: $*" >&2
        return 1
    fi
}

need_packages() {
    if ! command -v apt-get > /dev/null; then
        echo "Not a Debian system: this needs what Debian calls: $*"
        return 0
    fi
    local package missing=()
    for package in "$@"; do
        case "$(dpkg-query -W -f='${db:Status-Abbrev}' "$package" 2> /dev/null)" in
            ?i*) ;;
            *) missing+=("$package") ;;
        esac
    done
    if [ ${#missing[@]} -gt 0 ]; then
        echo "Installing: ${missing[*]}"
        as_root apt-get -qq update
        as_root env DEBIAN_FRONTEND=noninteractive apt-get -qq install -y --no-install-recommends "${missing[@]}" > /dev/null
    fi
}
