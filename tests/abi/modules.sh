#!/bin/bash
# Imports the headers as modules, as Objective-C and Swift do, and as C does where it merely includes them.
#
#     modules.sh CLANG INCLUDE
set -euo pipefail
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cat > "$work/import.m" << 'end'
@import kosc;
@import kosc_transfer;
int use(void);
int use(void)
{
    ko_soundcommu_options_t options;
    ko_soundcommu_default_options(&options, sizeof options);
    log_level = KOSC_LEVEL_WARN;
    return POLY != 0 && kosc_transfer_round(1) != 0;
}
end
{ echo '#include <kosc/core.h>'; echo '#include <kosc_transfer/transfer.h>'; sed 1,2d "$work/import.m"; } > "$work/import.c"
flags=(-fmodules "-fmodules-cache-path=$work/cache" -fsyntax-only -Wall -Wextra -Werror -I "$2")
"$1" "${flags[@]}" "$work/import.m"
"$1" "${flags[@]}" -Rmodule-import "$work/import.c" 2> "$work/remarks" || { cat "$work/remarks"; exit 1; }
[ "$(grep -c "importing module 'kosc" "$work/remarks")" -ge 2 ] || { echo "C includes no module"; exit 1; }
