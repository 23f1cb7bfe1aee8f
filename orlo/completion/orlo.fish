# Completion of orlo's command lines in fish. What fits is orlo's own to say.

function __orlo_complete
    set -l words (commandline -opc) (commandline -ct)
    for line in ($words[1] complete -- $words[2..-1] 2>/dev/null)
        if test "$line" = :files
            __fish_complete_path (commandline -ct)
        else
            echo $line
        end
    end
end
complete -c orlo -f -a '(__orlo_complete)'
