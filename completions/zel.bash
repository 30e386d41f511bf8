# Completion of zel for bash. zsh and fish ask it too.

_zel_flags() { # COMMAND: its flags
    case $1 in
        "") echo --help --version --store --socket --config --fleet --host --fleet-password --keep-temporary --verbose ;;
        ingest) echo --help --format --keep-unmapped --no-unmapped --recover --print-keys --keys-only --new \
            --no-receive-rows --live --follow --position ;;
        query) echo --help --since --until --day --by --after-cursor --action --object --actor-path --target-path \
            --pattern --hash --ip --correlation --type-id --actor-uid --enrichments --no-live-enriched --key --limit \
            --where --cmd-line --user --computer --pid --port --grep --machine \
            --duplicates --print-keys --with-key --show-cursor --explain --output --last --sort --reverse --fields --count-by \
            --histogram --trailer --no-pager --tz ;;
        follow) echo --help --action --object --actor-path --target-path --pattern --hash --ip --correlation --type-id \
            --actor-uid --where --cmd-line --user --computer --pid --port --grep --from --limit --with-position \
            --reconnect --output --fields --tz ;;
        hunt) echo --help --since --until --day --where --cmd-line --user --computer --pid --port --grep --min-level \
            --tag --status --placeholders --audit-log --summary --enrich --check --explain --strict --output --no-pager --tz ;;
        sql) echo --help --output ;;
        tree) echo --help --key --since --until --day --output ;;
        enrich) echo --help --live --silent --ndjson ;;
        purge) echo --help --max-size --dry-run --including-foreign --output ;;
        info) echo --help --check --output ;;
        monitor) echo --help --once --stop-below --resume-percent --output ;;
        "machine show") echo --help --machine ;;
        serve) echo --help --config --check --tail --web --stdin ;;
        web) echo --help --no-open ;;
        "fleet schema") echo --help --clickhouse-version --cluster --retention ;;
        "fleet init") echo --help --fleet-password --cluster --retention ;;
        "fleet check") echo --help --fleet-password ;;
        "fleet send") echo --help --fleet-password --host --position --batch-rows --batch-size --rate --first-pause \
            --since --follow --every --settling ;;
        "fleet backfill") echo --help --fleet-password --host --position --batch-rows --batch-size --rate \
            --first-pause --since --until ;;
        audisp) echo --help --queue ;;
        status) echo --help --watch --output ;;
        "config show") echo --help --config ;;
        *) echo --help ;;
    esac
}

_zel_commands() { # COMMAND: the commands that may follow
    case $1 in
        "") echo ingest query follow hunt sql tree enrich purge info monitor settings serve web fleet audisp status config machine ;;
        settings) echo get set unset ;;
        machine | config) echo show ;;
        fleet) echo schema init check send backfill ;;
    esac
}

_zel_values() { # COMMAND FLAG: what may follow the flag; FILE and DIR stand for all of them
    case $2 in
        --store | --socket | --config | --fleet-password | --position | --tail | --machine | --placeholders) echo FILE ;;
        --since | --until | --from) echo now today yesterday -1h -1d -1w ;;
        --day) echo today yesterday ;;
        --tz) echo local UTC ;;
        --histogram) echo 1m 1h 1d 1w ;;
        --by) echo event receive ;;
        --min-level) echo informational low medium high critical ;;
        --status) echo stable test experimental deprecated unsupported ;;
        --format) echo record windows-json windows-xml evtx ecs ocsf osquery audit ;;
        --clickhouse-version | --cluster | --retention | --batch-rows | --batch-size | --rate | --first-pause | \
            --every | --settling) echo NONE ;;
        --action) echo create delete open rename modify set_attributes encrypt decrypt close set_security \
            restore set launch terminate injection load unload logon logoff connect accept request \
            statistic scan generic enumerate reputation_query ;;
        --object) echo process file directory module service reg_key reg_value kernel_object network url \
            session etw amsi ;;
        -o | --output)
            case $1 in
                query | follow) echo ndjson json ocsf table csv timesketch ;;
                sql) echo table csv ndjson ;;
                hunt) echo ndjson json table csv ;;
                tree) echo tree json ndjson ;;
                *) echo table json ;;
            esac ;;
        --after-cursor | --actor-path | --target-path | --pattern | --hash | --ip | --correlation | --type-id | \
            --actor-uid | --key | --where | --tag | --cmd-line | --user | --computer | --pid | --port | --grep | \
            --fleet | --host | --limit | -n | --last | --fields | --count-by | --max-size | --stop-below | --resume-percent | --queue) echo NONE ;;
    esac
}

# What the store has of a column, the commonest first. Strangers wrote that, so it is never evaluated
# and always quoted; what could not stand on a command line is left out.
_zel_stored() { # COLUMN PREFIX
    local value i store=()
    for ((i = 1; i < COMP_CWORD; ++i)); do
        case ${COMP_WORDS[i]} in
            --store | --socket | --fleet) store=("${COMP_WORDS[i]}" "${COMP_WORDS[i + 1]}") ;;
            --store=* | --socket=* | --fleet=*) store=("${COMP_WORDS[i]}") ;;
        esac
    done
    COMPREPLY=()
    while IFS= read -r value; do
        value=${value%$'\r'} value=${value%,*}
        case $value in
            "" | \"* | \'* | *[[:cntrl:]]*) continue ;;
        esac
        value=$(printf %q "$value")
        [[ $value == "$2"* ]] && COMPREPLY+=("$value")
    done < <(timeout 3 "${COMP_WORDS[0]}" "${store[@]}" query --count-by "$1" --limit 50 -o csv 2>/dev/null | tail -n +2)
}

_zel_complete() {
    local cur="${COMP_WORDS[COMP_CWORD]}" command="" flag="" ahead="" word values
    # `flag` is the one whose value the word behind it is.
    for word in "${COMP_WORDS[@]:1:$((COMP_CWORD - 1))}"; do
        if [ "$word" = "=" ]; then
            continue
        elif [ -n "$flag" ]; then
            flag=
        elif [ -n "$(_zel_values "$command" "$word")" ]; then
            flag=$word
        elif [ -n "$(_zel_commands "$command")" ] && [ "${word#-}" = "$word" ]; then
            command="${command:+$command }$word"
        fi
    done
    [ "$cur" = "=" ] && cur=
    # bash makes words of a flag, = and the value; other shells leave them together.
    if [[ -z $flag && $cur == --*=* && -n $(_zel_values "$command" "${cur%%=*}") ]]; then
        flag=${cur%%=*} ahead=$flag= cur=${cur#*=}
    fi
    values=$(_zel_values "$command" "$flag")
    if [ -z "$values" ]; then
        case $cur,$command in
            -*) values="$(_zel_flags "$command")${command:+ --store --socket --config --fleet --host --fleet-password --keep-temporary --verbose}" ;;
            *,ingest | *,enrich | *,query | *,follow | *,hunt) values=FILE ;;
            *) values=$(_zel_commands "$command") ;;
        esac
    fi
    local IFS=$'\n'
    case $flag in
        --user | --computer) _zel_stored "${flag#--}" "$cur"; values=STORED ;;
    esac
    case $values in
        STORED) ;;
        NONE | "") COMPREPLY=() ;;
        DIR) compopt -o filenames 2>/dev/null; COMPREPLY=($(compgen -d -- "$cur")) ;;
        FILE) compopt -o filenames 2>/dev/null; COMPREPLY=($(compgen -f -- "$cur")) ;;
        *) COMPREPLY=($(compgen -W "${values// /$'\n'}" -- "$cur")) ;;
    esac
    COMPREPLY=("${COMPREPLY[@]/#/$ahead}")
}

complete -F _zel_complete zel
