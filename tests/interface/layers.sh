#!/usr/bin/env bash
# layers.sh SOURCE-FOLDER: no layer includes what lies above it. The include paths of the build
# already keep internal headers apart; this also looks at public headers and at paths with "..".
set -euo pipefail
source=$1
layers=(base platform foundations model objects bus api)

declare -A level public
for i in "${!layers[@]}"; do level[${layers[i]}]=$i; done
assign() { # LAYER HEADER...
  local layer=$1 header
  shift
  for header; do public[$header.h]=$layer; done
}
assign base macros error
assign platform xmlnode commandsource
assign foundations serialize eventutils
assign model keyvalue inspectable
assign objects event eventdeclaration subscribeexpression propertystate notification jsonoptions idgenerator
assign bus switch_bus_client producer_bus_client consumer_bus_client producer consumer
assign api eventproducer eventproducer_int eventconsumer eventconsumer_int query eventquery \
  asyncproducer asyncconsumer varro2

failed=0
complain() {
  echo "$1"
  failed=1
}
for header in "$source"/include/varro2/*.h; do
  [[ ${public[${header##*/}]-} ]] || complain "${header##*/} belongs to no layer: say which in layers.sh"
done

files=0
for layer in "${layers[@]}"; do
  for file in "$source/src/$layer"/*.{cpp,hpp}; do
    [[ -e $file ]] || continue
    ((++files))
    name=${file#"$source"/}
    while read -r included; do
      case $included in
      *..*) complain "$name includes by path: $included" ;;
      \<varro2/*)
        header=${included#<varro2/} header=${header%>}
        above=${public[$header]-}
        [[ $above ]] || { complain "$name includes the unknown $included"; continue; }
        ((level[$above] <= level[$layer])) || complain "$name ($layer) includes $included ($above)"
        ;;
      \"*)
        header=${included//\"/}
        for above in "${layers[@]}"; do
          if [[ -e $source/src/$above/$header ]] && ((level[$above] > level[$layer])); then
            complain "$name ($layer) includes $included ($above)"
          fi
        done
        ;;
      esac
    done < <(sed -nE 's/^ *# *include +([<"][^>"]+[>"]).*/\1/p' "$file")
  done
done
((files)) || complain "no source files under $source/src"
exit $failed
