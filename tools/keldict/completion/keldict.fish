# Completes the command line of keldict, for fish.
set -l commands check convert show diff

complete -c keldict -f -n "not __fish_seen_subcommand_from $commands" -a check -d 'Tell what the device would stop at, lose or do silently'
complete -c keldict -f -n "not __fish_seen_subcommand_from $commands" -a convert -d 'Turn a JSON dictionary into a database, or back'
complete -c keldict -f -n "not __fish_seen_subcommand_from $commands" -a show -d 'Print the items as the device would load them'
complete -c keldict -f -n "not __fish_seen_subcommand_from $commands" -a diff -d 'Tell what differs between the items of two files'
complete -c keldict -n "__fish_seen_subcommand_from check" -l strict -d 'Let warnings end with status 1'
complete -c keldict -x -n "__fish_seen_subcommand_from check" -l accept -a 'nul-byte column-name wrong-acceptance changed-id large-id empty-name similar-name wrong-type byte-overflow inherited-field unknown-key duplicate-key nul-in-text invalid-utf8 unknown-type type-not-restored unconvertible-value changed-value rounded-when-saved out-of-bounds bounds-exchanged text-not-restored' -d 'A warning that is meant to be'
complete -c keldict -x -n "__fish_seen_subcommand_from check" -l format -a 'text json sarif' -d 'What to print'
complete -c keldict -x -n "__fish_seen_subcommand_from check" -l limit -d 'How many findings of each code to print of a file'
complete -c keldict -n "__fish_seen_subcommand_from convert" -l force -d 'Replace OUT if it is there'
complete -c keldict -x -n "__fish_seen_subcommand_from show" -l block -d 'Only items of this block'
complete -c keldict -x -n "__fish_seen_subcommand_from show" -l id -d 'Only items with these IDs'
complete -c keldict -x -n "__fish_seen_subcommand_from show" -l name -d 'Only items with such names'
complete -c keldict -n "__fish_seen_subcommand_from show" -l json -d 'Print a JSON dictionary'
