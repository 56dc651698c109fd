# Completion of kxmap in bash. Commands and options are read from kxmap's own help, so they are those of the version
# that is installed.

_kxmap_commands() {
    "${COMP_WORDS[0]}" --help 2>/dev/null | sed -n '/ommands:$/,/^$/s/^  \([a-z]\{1,\}\) .*/\1/p'
}

_kxmap_options() {
    "${COMP_WORDS[0]}" $1 --help 2>/dev/null | sed -n 's/^  \(-[^ {]*\).*/\1/p' | tr ',' '\n'
}

# What --format takes; its help ends in the list: "How to print: text or json"
_kxmap_formats() {
    "${COMP_WORDS[0]}" $1 --help 2>/dev/null | sed -n 's/^  --format FORMAT *\(.*: \)*//p' | sed 's/,/ /g; s/ or / /g'
}

_kxmap_warnings() {
    "${COMP_WORDS[0]}" "$1" --list-warnings 2>/dev/null | sed -n 's/^\([a-z][a-z-]*\)  *\(warning\|off\) .*/-W\1 -Wno-\1/p'
}

# The AE titles that have a mapping file in the folder of --mappings, or in that of DICOM_VAR.
_kxmap_titles() {
    local folder=${DICOM_VAR-}/mappings suffix=.map i file
    for ((i = 1; i < COMP_CWORD; ++i)); do
        case ${COMP_WORDS[i]} in
        --mappings)
            folder=${COMP_WORDS[i + 1]}
            [[ $folder == = ]] && folder=${COMP_WORDS[i + 2]}
            ;;
        --outbound) suffix=.out.map ;;
        esac
    done
    for file in "$folder"/*"$suffix"; do
        file=${file##*/}
        [[ $file == "*$suffix" || ($suffix == .map && $file == *.out.map) ]] || printf '%s\n' "${file%"$suffix"}"
    done
}

_kxmap_functions() {
    "${COMP_WORDS[0]}" functions 2>/dev/null | sed -n 's/^  \([A-Za-z]\{1,\}\)(.*/\1/p' | sort -u
}

# _kxmap_files GLOB: the folders and the files that fit
_kxmap_files() {
    compopt -o filenames 2>/dev/null
    compgen -d -- "$cur"
    compgen -f -X "!$1" -- "$cur"
}

_kxmap() {
    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]} command="" word candidates
    if [[ $cur == = ]]; then
        cur=""
    elif [[ $prev == = ]]; then
        prev=${COMP_WORDS[COMP_CWORD - 2]}
    fi
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        [[ $word == -* ]] || { command=$word; break; }
    done

    if [[ -z $command ]]; then
        candidates=$(compgen -W "$(_kxmap_commands; _kxmap_options)" -- "$cur")
    elif [[ ($command == check || $command == try) && $cur == -W* ]]; then
        word=
        [[ $command == check ]] && word=-Werror
        candidates=$(compgen -W "$(_kxmap_warnings "$command") -Wall -Wno-all $word" -- "$cur")
    elif [[ $cur == -* ]]; then
        candidates=$(compgen -W "$(_kxmap_options "$command")" -- "$cur")
    else
        case $prev in
        --aet) candidates=$(_kxmap_titles | while read -r word; do [[ $word == "$cur"* ]] && printf '%s\n' "$word"; done) ;;
        --mappings) compopt -o filenames 2>/dev/null; candidates=$(compgen -d -- "$cur") ;;
        --single) candidates=$(_kxmap_files '*.map') ;;
        -o | --output | --report | --from-file) candidates=$(_kxmap_files '*') ;;
        --format) candidates=$(compgen -W "$(_kxmap_formats "$command")" -- "$cur") ;;
        --color) candidates=$(compgen -W "auto always never" -- "$cur") ;;
        --reason) candidates=$(compgen -W "COERCE CORRECT" -- "$cur") ;;
        esac
        [[ -n $candidates ]] || case $command in
        check) candidates=$(_kxmap_files '*.map') ;;
        functions) candidates=$(compgen -W "$(_kxmap_functions)" -- "$cur") ;;
        *) candidates=$(_kxmap_files '*') ;; # DICOM files often have no ending
        esac
    fi
    mapfile -t COMPREPLY <<<"$candidates"
    [[ -n $candidates ]] || COMPREPLY=()
}

complete -F _kxmap kxmap
