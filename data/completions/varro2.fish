# Completion for varro2: commands and options, and from the live system types, topics and keys.

function __varro2_from
    varro2 complete $argv 2>/dev/null
end

# Words of the command line that are neither options nor the values of options: the command first.
function __varro2_words
    set -l words (commandline -opc)
    set -l value
    for word in $words[2..]
        if test -n "$value"
            set value
        else if contains -- $word --format --to --color --colour --from --output -o --count --timeout --speed --hold --rate
            set value yes
        else if not string match -q -- '-*' $word
            echo $word
        end
    end
end

function __varro2_is
    set -l words (__varro2_words)
    contains -- "$words[1]" $argv
end

# So many arguments of the command stand already.
function __varro2_has
    test (count (__varro2_words)) -eq (math $argv[1] + 1)
end

# In quotes an expression is one word: the test that is being typed begins behind the last sign.
function __varro2_tests
    set -l before (string match -r '^.*[ &|(!]' -- (string replace -r '^[\'"]' '' -- (commandline -ct)))
    string replace -r '^' -- "$before" (__varro2_from tests; __varro2_from keys)
end

function __varro2_open_keys
    set -l words (__varro2_words)
    __varro2_from open-keys $words[2]
end

set -l at 'test -z (__varro2_words | head -n 1)'
complete -c varro2 -f
complete -c varro2 -s h -l help -d 'Tell about it'
complete -c varro2 -n $at -l version -d 'Print the version'
complete -c varro2 -l color -l colour -xa 'auto always never' -d Colours
complete -c varro2 -s v -l verbose -d 'Show what the library says'

complete -c varro2 -n $at -a monitor -d 'Show events as they come'
complete -c varro2 -n $at -a wait -d 'Wait for the first event that fits'
complete -c varro2 -n $at -a state -d 'Show the present state of a property'
complete -c varro2 -n $at -a list -d 'Show what is declared, a row each'
complete -c varro2 -n $at -a tree -d 'Show the topics as a tree'
complete -c varro2 -n $at -a describe -d 'Show all about a topic, a declaration or a type'
complete -c varro2 -n $at -a types -d 'Show the declaration types'
complete -c varro2 -n $at -a send -d 'Send an event of a type, or events from a file'
complete -c varro2 -n $at -a record -d 'Write events into a file'
complete -c varro2 -n $at -a replay -d 'Send events from a file as they once came'
complete -c varro2 -n $at -a explain -d 'Say why an event fits an expression or not'
complete -c varro2 -n $at -a lint -d 'Check declaration, expression and property files'
complete -c varro2 -n $at -a convert -d 'Convert between XML, binary, JSON and a dump'
complete -c varro2 -n $at -a add-type -d 'Have the switch keep a declaration type'
complete -c varro2 -n $at -a remove-type -d 'Have the switch forget a declaration type'
complete -c varro2 -n $at -a status -d 'Show whether bus and switch are there'

complete -c varro2 -n '__varro2_is monitor wait state list' -a '(__varro2_tests)'
complete -c varro2 -n '__varro2_is explain; and __varro2_has 0' -a '(__varro2_tests)'
complete -c varro2 -n '__varro2_is record; and not __varro2_has 0' -a '(__varro2_tests)'
complete -c varro2 -n '__varro2_is describe' -a '(__varro2_from topics; __varro2_from types)'
complete -c varro2 -n '__varro2_is send remove-type; and __varro2_has 0' -a '(__varro2_from types)'
complete -c varro2 -n '__varro2_is send; and not __varro2_has 0' -a '(__varro2_open_keys)'
complete -c varro2 -n '__varro2_is replay lint convert' -F
complete -c varro2 -n '__varro2_is record; and __varro2_has 0' -F
complete -c varro2 -n '__varro2_is explain add-type; and __varro2_has 1' -F
complete -c varro2 -n '__varro2_is monitor wait state list tree describe types explain lint status' -l json -d 'One object a line'
complete -c varro2 -n '__varro2_is monitor wait' -l format -xa 'text json onvif' -d How
complete -c varro2 -n '__varro2_is monitor wait' -l secure -d 'Show user ids'
complete -c varro2 -n '__varro2_is monitor wait send record replay' -l timeout -x -d 'At most so many seconds'
complete -c varro2 -n '__varro2_is monitor record' -l count -x -d 'End after so many events'
complete -c varro2 -n '__varro2_is monitor' -l notifications -d 'Declarations too'
complete -c varro2 -n '__varro2_is tree' -l types -d 'Of the types'
complete -c varro2 -n '__varro2_is send' -l from -rF -d 'Events from a file'
complete -c varro2 -n '__varro2_is send' -l hold -x -d 'Stay declared for so many seconds'
complete -c varro2 -n '__varro2_is send' -l rate -x -d 'At most so many a second'
complete -c varro2 -n '__varro2_is record' -l force -d 'Write over'
complete -c varro2 -n '__varro2_is replay' -l speed -x -d 'Times as fast'
complete -c varro2 -n '__varro2_is explain' -l live -d 'Which declarations fit'
complete -c varro2 -n '__varro2_is lint' -l strict -d 'Fail on warnings'
complete -c varro2 -n '__varro2_is convert' -l to -xa 'xml binary json dump' -d Form
complete -c varro2 -n '__varro2_is convert' -s o -l output -rF -d Where
