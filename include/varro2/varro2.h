/**
 * @file varro2.h
 * All of libvarro2.
 */
#ifndef VARRO2_VARRO2_H
#define VARRO2_VARRO2_H

#include <varro2/asyncconsumer.h>
#include <varro2/asyncproducer.h>
#include <varro2/commandsource.h>
#include <varro2/consumer.h>
#include <varro2/consumer_bus_client.h>
#include <varro2/error.h>
#include <varro2/event.h>
#include <varro2/eventconsumer.h>
#include <varro2/eventconsumer_int.h>
#include <varro2/eventdeclaration.h>
#include <varro2/eventproducer.h>
#include <varro2/eventproducer_int.h>
#include <varro2/eventquery.h>
#include <varro2/eventutils.h>
#include <varro2/idgenerator.h>
#include <varro2/inspectable.h>
#include <varro2/jsonoptions.h>
#include <varro2/keyvalue.h>
#include <varro2/macros.h>
#include <varro2/notification.h>
#include <varro2/producer.h>
#include <varro2/producer_bus_client.h>
#include <varro2/propertystate.h>
#include <varro2/query.h>
#include <varro2/serialize.h>
#include <varro2/subscribeexpression.h>
#include <varro2/switch_bus_client.h>
#include <varro2/xmlnode.h>

#endif
