# Completion for varro2: commands and options, and from the live system types, topics and keys.

function __varro2_from
    varro2 complete $argv 2>/dev/null
end

function __varro2_open_keys
    set -l words (commandline -opc)
    set -l at (contains -i -- send $words); or return
    set -l type $words[(math $at + 1)]
    test -n "$type"; and __varro2_from open-keys $type
end

set -l commands monitor wait state list tree describe types send record replay explain lint convert add-type remove-type status

complete -c varro2 -f
complete -c varro2 -n "not __fish_seen_subcommand_from $commands" -l help -d 'Tell about the program'
complete -c varro2 -n "not __fish_seen_subcommand_from $commands" -l version -d 'Print the version'
complete -c varro2 -n "not __fish_seen_subcommand_from $commands" -l color -xa 'auto always never' -d Colours
complete -c varro2 -n "not __fish_seen_subcommand_from $commands" -s v -l verbose -d 'Show what the library says'

set -l at "not __fish_seen_subcommand_from $commands"
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

complete -c varro2 -n '__fish_seen_subcommand_from monitor wait state list record' -a '(__varro2_from tests; __varro2_from keys)'
complete -c varro2 -n '__fish_seen_subcommand_from describe' -a '(__varro2_from topics; __varro2_from types)'
complete -c varro2 -n '__fish_seen_subcommand_from send remove-type' -a '(__varro2_from types)'
complete -c varro2 -n '__fish_seen_subcommand_from send' -a '(__varro2_open_keys)'
complete -c varro2 -n '__fish_seen_subcommand_from record replay explain lint convert add-type' -F
complete -c varro2 -n '__fish_seen_subcommand_from monitor wait state list tree describe types explain lint status' -l json -d 'One object a line'
complete -c varro2 -n '__fish_seen_subcommand_from monitor wait' -l format -xa 'text json onvif' -d How
complete -c varro2 -n '__fish_seen_subcommand_from monitor wait' -l secure -d 'Show user ids'
complete -c varro2 -n '__fish_seen_subcommand_from monitor wait send record replay' -l timeout -x -d 'At most so many seconds'
complete -c varro2 -n '__fish_seen_subcommand_from monitor record' -l count -x -d 'End after so many events'
complete -c varro2 -n '__fish_seen_subcommand_from monitor' -l notifications -d 'Declarations too'
complete -c varro2 -n '__fish_seen_subcommand_from tree' -l types -d 'Of the types'
complete -c varro2 -n '__fish_seen_subcommand_from send' -l from -rF -d 'Events from a file'
complete -c varro2 -n '__fish_seen_subcommand_from send' -l hold -x -d 'Stay declared for so many seconds'
complete -c varro2 -n '__fish_seen_subcommand_from send' -l rate -x -d 'At most so many a second'
complete -c varro2 -n '__fish_seen_subcommand_from record' -l force -d 'Write over'
complete -c varro2 -n '__fish_seen_subcommand_from replay' -l speed -x -d 'Times as fast'
complete -c varro2 -n '__fish_seen_subcommand_from explain' -l live -d 'Which declarations fit'
complete -c varro2 -n '__fish_seen_subcommand_from lint' -l strict -d 'Fail on warnings'
complete -c varro2 -n '__fish_seen_subcommand_from convert' -l to -xa 'xml binary json dump' -d Form
complete -c varro2 -n '__fish_seen_subcommand_from convert' -s o -l output -rF -d Where
