# Completion of ferrodeck for fish.

complete -c ferrodeck -f
complete -c ferrodeck -l left -x -a '(__fish_complete_directories)' -d 'Folder of the left side'
complete -c ferrodeck -l right -x -a '(__fish_complete_directories)' -d 'Folder of the right side'
complete -c ferrodeck -l active -x -a 'left right' -d 'Side that is the source'
complete -c ferrodeck -l geometry -x -d 'WIDTHxHEIGHT+X+Y'
