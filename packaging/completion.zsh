#compdef appcfg
# Completion of appcfg for zsh: the program itself knows what fits.
local -a found open
found=("${(@f)$(appcfg --complete "${(@)words[2,CURRENT]}" 2>/dev/null)}")
found=(${found:#})
open=(${(M)found:#*[/.=\[]})
if (( ! ${#found} )); then
    _files
else
    compadd -S '' -- $open
    compadd -- ${found:|open}
fi
