// SPDX-License-Identifier: MIT
// The handlers of the command table. Each carries out one command in all its forms.
#pragma once

#include "runtime/modem_simulator/at_command.h"
#include "runtime/modem_simulator/modem_state.h"

namespace modem_simulator {

using Handler = Result(ModemState& modem, const AtCommand& command, Answer& answer);

// general_commands.cpp
Handler Echo;
Handler Verbose;
Handler Quiet;
Handler ResetSettings;
Handler Accept;
Handler Dial;
Handler Register;
Handler Speed;
Handler FlowControl;
Handler CharacterFraming;
Handler ErrorLevel;
Handler SelectCharacterSet;
Handler Manufacturer;
Handler Model;
Handler Revision;
Handler SerialNumber;
Handler Capabilities;
Handler ProductName;

// network_commands.cpp
Handler Pin;
Handler Signal;
Handler CircuitRegistration;
Handler PacketRegistration;
Handler PacketAttachment;
Handler Operator;
Handler Functionality;
Handler Subscriber;
Handler Activity;
Handler Clock;

// message_commands.cpp
Handler MessageFormat;
Handler Storage;
Handler ServiceCentre;
Handler MessageService;
Handler NewMessageIndications;
Handler Acknowledge;
Handler TextModeParameters;
Handler ShowTextModeParameters;

// listing_commands.cpp
Handler List;
Handler Read;
Handler Delete;

// sending_commands.cpp
Handler Send;
Handler Write;
Handler SendStored;

}  // namespace modem_simulator
