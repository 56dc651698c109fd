# Completion of kxmap in fish. Commands and options are read from kxmap's own help, so they are those of the version that
# is installed.

function __kxmap_command
    for word in (commandline -opc)[2..]
        if not string match -q -- '-*' $word
            echo $word
            return 0
        end
    end
    return 1
end

function __kxmap_commands
    kxmap --help 2>/dev/null | string replace -rf '^  ([a-z]+) +(.*)$' '$1\t$2'
end

function __kxmap_options
    kxmap (__kxmap_command) --help 2>/dev/null |
        string replace -rf '^  (?:-[^ ,]+,)?(-[^ {]+)[^ ]*(?: (?! )[^ ]+)* *(.*)$' '$1\t$2'
end

# What --format takes; its help ends in the list: "How to print: text or json"
function __kxmap_formats
    kxmap (__kxmap_command) --help 2>/dev/null | string replace -rf '^  --format FORMAT *(.*: )?' '' |
        string replace -ra ',| or ' ' ' | string split -n ' '
end

function __kxmap_warnings
    for name in (kxmap (__kxmap_command) --list-warnings 2>/dev/null | string replace -rf '^([a-z][a-z-]*) +(?:warning|off) .*' '$1') all
        printf '%s\n' -W$name -Wno-$name
    end
    contains -- check (__kxmap_command); and echo -Werror
end

function __kxmap_functions
    kxmap functions 2>/dev/null | string replace -rf '^  ([A-Za-z]+)\(.*' '$1'
end

# The AE titles that have a mapping file in the folder of --mappings, or in that of DICOM_VAR.
function __kxmap_titles
    set -l folder $DICOM_VAR/mappings
    set -l words (commandline -opc)
    if set -l at (contains -i -- --mappings $words)
        set folder $words[(math $at + 1)]
    end
    for file in $folder/*.map
        set -l name (basename $file)
        if string match -q '*.out.map' $name
            contains -- --outbound $words; and string replace -r '\.out\.map$' '' $name
        else
            contains -- --outbound $words; or string replace -r '\.map$' '' $name
        end
    end
end

function __kxmap_after
    contains -- (commandline -opc)[-1] $argv
end

complete -c kxmap -n 'not __kxmap_command >/dev/null' -f -a '(__kxmap_commands)'
complete -c kxmap -n 'string match -q -- "-*" (commandline -ct)' -f -a '(__kxmap_options)'
complete -c kxmap -n '__kxmap_after --aet' -f -a '(__kxmap_titles)'
complete -c kxmap -n '__kxmap_after --mappings' -f -a '(__fish_complete_directories)'
complete -c kxmap -n '__kxmap_after --single' -f -a '(__fish_complete_suffix .map)'
complete -c kxmap -n '__kxmap_after --format' -f -a '(__kxmap_formats)'
complete -c kxmap -n '__kxmap_after --color' -f -a 'auto always never'
complete -c kxmap -n '__kxmap_after --reason' -f -a 'COERCE CORRECT'
complete -c kxmap -n 'contains -- (__kxmap_command) check try; and string match -q -- "-W*" (commandline -ct)' -f -a '(__kxmap_warnings)'
complete -c kxmap -n 'contains -- check (__kxmap_command); and not __kxmap_after --format --color --mappings' -f -a '(__fish_complete_suffix .map)'
complete -c kxmap -n 'contains -- functions (__kxmap_command)' -f -a '(__kxmap_functions)'
